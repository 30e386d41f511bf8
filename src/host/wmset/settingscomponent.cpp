#include "common/itobbaseimpl.h"
#include "common/settings.h"
#include "common/textbridge.h"
#include "settingsfile.h"

namespace ZEL {

std::atomic<std::uint32_t>& LiveObjectCounter() noexcept {
    static std::atomic<std::uint32_t> counter{0};
    return counter;
}

void* ModuleHandle() noexcept {
    static const char anchor = 0;
    return const_cast<char*>(&anchor);
}

}  // namespace ZEL

namespace wmset {

using namespace ZEL;

namespace {

// One for the process: its lock keeps two threads from replacing the file at the same time.
SettingsFile& TheFile() {
    static SettingsFile& file = *new SettingsFile;
    return file;
}

// What the settings objects share. They have no owner of their own.
class SettingsObject : public ITobBaseImpl<CTobThreadSafeRefCount>, public vodLib::NonCopyable {
protected:
    ObjectOwnership owner_;
};

class SettingsKey final : public ISettingsKey, public SettingsObject {
public:
    explicit SettingsKey(std::string path) : path_(std::move(path)) {}

    TobResult QueryInterface(const GUID& iid, void** out) override {
        ISettingsKey* const face = this;
        const InterfaceRow rows[] = {{iidSettingsKey, face}};
        return FindInterface(rows, iid, this, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    TobResult Load() { return TheFile().Load(path_, &numbers_); }
    TobResult Save() { return TheFile().Save(path_, numbers_); }

    TobResult ReadNumber(const wchar_t* name, std::uint32_t* value) override {
        if (name == nullptr || value == nullptr)
            return TOBERR_INVALID_ARG;
        const auto found = numbers_.find(wm::ToUtf8Lossy(name));
        if (found == numbers_.end())
            return TOBERR_NOT_FOUND;
        *value = found->second;
        return TOB_OK;
    }
    TobResult WriteNumber(const wchar_t* name, std::uint32_t value) override {
        if (name == nullptr)
            return TOBERR_INVALID_ARG;
        numbers_[wm::ToUtf8Lossy(name)] = value;
        return TOB_OK;
    }

private:
    const std::string path_;
    SettingsFile::Numbers numbers_;
};

class SettingsManager final : public ISettingsManager, public SettingsObject {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        ISettingsManager* const face = this;
        const InterfaceRow rows[] = {{iidSettingsManager, face}};
        return FindInterface(rows, iid, this, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    TobResult OpenKey(const wchar_t* path, ISettingsKey** key) override {
        if (path == nullptr || key == nullptr)
            return TOBERR_INVALID_ARG;
        *key = nullptr;
        try {
            auto* const made = new SettingsKey(wm::ToUtf8Lossy(path));
            auto opened = CountedPtr<ISettingsKey>(made);
            const TobResult result = made->Load();
            if (Succeeded(result))
                *key = opened.Detach();
            return result;
        } catch (...) {
            return TOBERR_OUT_OF_MEMORY;
        }
    }
    TobResult PutBack(ISettingsKey* key) override {
        auto* const own = dynamic_cast<SettingsKey*>(key);
        if (own == nullptr)
            return TOBERR_INVALID_ARG;
        try {
            return own->Save();
        } catch (...) {
            return TOBERR_OUT_OF_MEMORY;
        }
    }

    ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }
};

}  // namespace
}  // namespace wmset

extern "C" __attribute__((visibility("default"))) ZEL::TobResult GetFactory(
    const ZEL::GUID& objectId, ZEL::ITobFactory** factory) {
    using namespace ZEL;
    if (factory == nullptr || !(objectId == settingsManagerObjectId))
        return TOBERR_INVALID_ARG;
    auto* const made = new (std::nothrow) CTobFactoryImpl<wmset::SettingsManager>();
    if (made == nullptr)
        return TOBERR_OUT_OF_MEMORY;
    made->AddRef();
    *factory = made;
    return TOB_OK;
}

extern "C" __attribute__((visibility("default"))) std::uint32_t GetObjectCount() {
    return ZEL::LiveObjectCounter().load(std::memory_order_acquire);
}
