#include "common/settingsvalue.h"

#include "common/hostservices.h"
#include "common/textbridge.h"

// One value at a time, with the key opened and released around it: nothing is kept between two
// questions, so each one sees what was stored last.

namespace wm {

using namespace ZEL;

namespace {

HRESULT Told(TobResult result, const wchar_t* name) {
    return Traced(ToHResult(result, ResultTable::settings), message::settingNotReached,
                  ToUtf8Lossy(name));
}

}  // namespace

TobResult OpenSettingsKey::Open(const wchar_t* keyPath) noexcept {
    key_.Reset();
    const TobResult loaded = OpenSettings(manager_.Receive());
    return Failed(loaded) ? loaded : manager_->OpenKey(keyPath, key_.Receive());
}

TobResult OpenSettingsKey::PutBack() {
    return manager_->PutBack(key_.Get());
}

// The caller's value is touched last: a failure half-way leaves the default that he put there.
HRESULT ReadSetting(const wchar_t* keyPath, const wchar_t* name, std::uint32_t* value) {
    OpenSettingsKey open;
    TobResult result = open.Open(keyPath);
    std::uint32_t read = 0;
    if (Succeeded(result))
        result = open->ReadNumber(name, &read);
    if (Succeeded(result))
        *value = read;
    return Told(result, name);
}

HRESULT WriteSetting(const wchar_t* keyPath, const wchar_t* name, std::uint32_t value) {
    OpenSettingsKey open;
    TobResult result = open.Open(keyPath);
    if (Succeeded(result))
        result = open->WriteNumber(name, value);
    if (Succeeded(result))
        result = open.PutBack();
    return Told(result, name);
}

}  // namespace wm
