#include "common/componentapi.h"
#include "common/itobbaseimpl.h"
#include "common/neverdestroyed.h"
#include "common/settings.h"
#include "common/textbridge.h"
#include "settingsfile.h"

// The settings service as a component: keys and their manager over the one file of the process. A
// key works on a copy of its numbers and remembers what was written through it, so that putting it
// back merges these values alone and a key that was held for long brings no old value back.

namespace wmset {

using namespace ZEL;

namespace {

// One for the process: its lock keeps two threads from replacing the file at the same time.
SettingsFile& TheFile() {
    static wm::NeverDestroyed<SettingsFile> file;
    return *file;
}

// Keeps exceptions inside.
template <typename Body>
TobResult Guarded(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return TOBERR_OUT_OF_MEMORY;
    }
}

// What can't be stored is refused when it is written, where its name is known, not when it is put
// back.
bool ToName(const wchar_t* text, std::string& utf8) {
    return text != nullptr && wm::ToUtf8(text, utf8) && SettingsFile::IsName(utf8);
}

class SettingsKey final : public TobObject<ISettingsKey2> {
public:
    explicit SettingsKey(std::string path) : path_(std::move(path)) {}

    TobResult QueryInterface(const GUID& iid, void** out) override {
        ISettingsKey2* const face = this;
        return Answer(iid, out, {{iidSettingsKey, face}, {iidSettingsKey2, face}});
    }

    TobResult Load() { return TheFile().Load(path_, &numbers_); }
    // Only what was written here: another key object may have changed the rest in the meantime.
    TobResult Save() {
        const TobResult result = TheFile().Save(path_, written_);
        if (Succeeded(result))
            written_.clear();
        return result;
    }

    TobResult ReadNumber(const wchar_t* name, std::uint32_t* value) override {
        if (name == nullptr || value == nullptr)
            return TOBERR_INVALID_ARG;
        return Guarded([&] {
            std::string utf8;
            const auto found = wm::ToUtf8(name, utf8) ? numbers_.find(utf8) : numbers_.end();
            if (found == numbers_.end())
                return TOBERR_NOT_FOUND;
            *value = found->second;
            return TOB_OK;
        });
    }
    TobResult WriteNumber(const wchar_t* name, std::uint32_t value) override {
        return Guarded([&] {
            std::string utf8;
            if (!ToName(name, utf8))
                return TOBERR_INVALID_ARG;
            written_[utf8] = value;
            numbers_[utf8] = value;
            return TOB_OK;
        });
    }
    // Only what this key knows can be taken out, not what another key object has written since it
    // was opened.
    TobResult RemoveNumber(const wchar_t* name) override {
        return Guarded([&] {
            std::string utf8;
            if (!ToName(name, utf8) || numbers_.erase(utf8) == 0)
                return TOBERR_NOT_FOUND;
            written_[utf8] = std::nullopt;
            return TOB_OK;
        });
    }

private:
    const std::string path_;
    SettingsFile::Numbers numbers_;
    SettingsFile::Changes written_;  // since the last Save
};

class SettingsManager final : public TobObjectOf<ISettingsManager, iidSettingsManager> {
public:
    TobResult OpenKey(const wchar_t* path, ISettingsKey** key) override {
        if (key == nullptr)
            return TOBERR_INVALID_ARG;
        *key = nullptr;
        return Guarded([&] {
            std::string utf8;
            if (!ToName(path, utf8))
                return TOBERR_INVALID_ARG;
            auto* const made = new SettingsKey(std::move(utf8));
            CountedPtr<ISettingsKey> opened(made);
            const TobResult result = made->Load();
            if (Succeeded(result))
                *key = opened.Detach();
            return result;
        });
    }
    // A key of another service has nothing to be stored here.
    TobResult PutBack(ISettingsKey* key) override {
        auto* const own = dynamic_cast<SettingsKey*>(key);
        return own != nullptr ? Guarded([&] { return own->Save(); }) : TOBERR_INVALID_ARG;
    }
};

}  // namespace
}  // namespace wmset

extern "C" ZEL_COMPONENT_API ZEL::TobResult GetFactory(const ZEL::GUID& objectId,
                                                       ZEL::ITobFactory** factory) {
    using namespace ZEL;
    if (factory == nullptr || !(objectId == settingsManagerObjectId))
        return TOBERR_INVALID_ARG;
    return GiveFactory<wmset::SettingsManager>(factory);
}

extern "C" ZEL_COMPONENT_API std::uint32_t GetObjectCount() {
    return ZEL::LiveObjectCounter().load(std::memory_order_acquire);
}
