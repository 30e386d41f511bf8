#include "zelstore/settingsreader.h"

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/textbridge.h"

namespace ZEL {

namespace {

struct OpenKey {
    CountedPtr<ISettingsManager> manager;
    CountedPtr<ISettingsKey> key;
};

TobResult Open(const wchar_t* keyPath, OpenKey* open) {
    const TobResult loaded = wm::OpenSettings(open->manager.Receive());
    if (Failed(loaded))
        return loaded;
    return open->manager->OpenKey(keyPath, open->key.Receive());
}

HRESULT Traced(TobResult result, const wchar_t* name) {
    const HRESULT code = ToHResult(result, ResultTable::settings);
    if (Failed(code))
        wm::Trace(wm::TraceLevel::warning, "a settings value can't be reached", code,
                  wm::ToUtf8Lossy(name));
    return code;
}

}  // namespace

HRESULT ReadSetting(const wchar_t* keyPath, const wchar_t* name, std::uint32_t* value) {
    OpenKey open;
    TobResult result = Open(keyPath, &open);
    std::uint32_t read = 0;
    if (Succeeded(result))
        result = open.key->ReadNumber(name, &read);
    if (Succeeded(result))
        *value = read;
    return Traced(result, name);
}

HRESULT WriteSetting(const wchar_t* keyPath, const wchar_t* name, std::uint32_t value) {
    OpenKey open;
    TobResult result = Open(keyPath, &open);
    if (Succeeded(result))
        result = open.key->WriteNumber(name, value);
    if (Succeeded(result))
        result = open.manager->PutBack(open.key.Get());
    return Traced(result, name);
}

}  // namespace ZEL
