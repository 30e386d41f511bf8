#include "common/settingsvalue.h"

#include "common/hostservices.h"
#include "common/textbridge.h"

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
