#include "common/hostservices.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>

#include "common/countedptr.h"
#include "common/filesystem.h"
#include "common/neverdestroyed.h"
#include "common/textbridge.h"
#include "platform.h"

// What the store asks of its surroundings, and how a component is found and loaded.
//
// A component is a shared library in the install directory that exports GetFactory: the loader asks
// it for the factory of an object's identifier and the factory for one object. The directory is the
// value of %ZELInstallDir% or, without one, where wmLib itself was loaded from, so that a tree that
// was unpacked anywhere finds its own parts and no part of another one. The path always names its
// folder: a bare name would let the system search its own list of folders, and with it whatever
// somebody has put there.
//
// A library stays loaded until the process ends. Unloading it safely would take the knowledge that
// no thread is in its code and no object of it lives; what it would gain is some memory. Failures
// are not remembered: the next attempt tries again, since a file may have been put in place
// meanwhile.

namespace wm {

namespace {

// One seam: the host's replacement, when there is one, else the default. The default is part of the
// seam and is never destroyed, so a thread that has just read the pointer always has something to
// call.
template <typename Interface, typename Default>
class Seam {
public:
    Interface& Get() noexcept {
        Interface* const replacement = replacement_.load(std::memory_order_acquire);
        return replacement != nullptr ? *replacement : default_;
    }
    void Replace(Interface* replacement) noexcept {
        replacement_.store(replacement, std::memory_order_release);
    }
    Default& Own() noexcept { return default_; }

private:
    std::atomic<Interface*> replacement_{nullptr};
    Default default_;
};

// Rounded down, also for times before 1970: a moment never gets a time that is still to come.
class SystemClock final : public IClock {
public:
    SystemTime UtcNow() noexcept override {
        using namespace std::chrono;
        return ToSystemTime(floor<milliseconds>(system_clock::now()));
    }
    std::uint64_t TickCount64() noexcept override { return platform::UptimeMs(); }
};

// What the system keeps back for its administrator is not counted.
class VolumeSpace final : public IFreeSpace {
public:
    ZEL::HRESULT AvailableBytes(const std::wstring& path, std::uint64_t* bytes) noexcept override {
        try {
            std::string narrow;
            if (!ToUtf8(path, narrow))
                return ZEL::hr::invalidArgument;
            const std::error_code error = platform::AvailableBytes(narrow, bytes);
            return error ? ZEL::FromWin32(platform::Win32Code(error)) : ZEL::hr::ok;
        } catch (...) {
            return ZEL::hr::outOfMemory;
        }
    }
};

// The table comes ahead of the environment, so that a host can decide for its process whatever the
// environment says. An empty variable is no value: a path that starts with nothing would be one at
// the root.
class TokenTable final : public IPathTokens {
public:
    void Set(const std::wstring& token, const std::wstring& value) {
        const std::lock_guard lock(mutex_);
        if (value.empty())
            values_.erase(token);
        else
            values_[token] = value;
    }
    bool Resolve(const std::wstring& token, std::wstring& value) noexcept override {
        try {
            {
                const std::lock_guard lock(mutex_);
                const auto found = values_.find(token);
                if (found != values_.end()) {
                    value = found->second;
                    return true;
                }
            }
            std::string name;
            if (token.size() < 3 || !ToUtf8(token.substr(1, token.size() - 2), name))
                return false;
            return platform::EnvironmentVariable(name, value) && !value.empty();
        } catch (...) {
            return false;
        }
    }

private:
    std::mutex mutex_;
    std::map<std::wstring, std::wstring> values_;
};

// The lock covers loading alone; making the object runs the component's own code, which may well
// load another one.
class ComponentLoader final : public IObjectLoader {
public:
    ZEL::TobResult LoadObject(const std::wstring& libraryPath, const ZEL::GUID& objectId,
                              const ZEL::GUID& iid, void** out) noexcept override {
        using namespace ZEL;
        if (out == nullptr)
            return TOBERR_INVALID_ARG;
        *out = nullptr;
        try {
            const platform::LoadedLibrary library = Find(libraryPath);
            if (!library.loaded)
                return TOBERR_BAD_LIBRARY;
            if (library.getFactory == nullptr)
                return TOBERR_PROC_NOT_FOUND;
            CountedPtr<ITobFactory> factory;
            const TobResult result = library.getFactory(objectId, factory.Receive());
            if (Failed(result))
                return result;
            if (!factory)
                return TOBERR_FAIL;
            return factory->CreateInstance(iid, out);
        } catch (...) {
            return TOBERR_OUT_OF_MEMORY;
        }
    }

private:
    // One library under two spellings of its path is loaded once by the system and has two entries
    // here, which does no harm.
    platform::LoadedLibrary Find(const std::wstring& path) {
        const std::lock_guard lock(mutex_);
        const auto found = libraries_.find(path);
        if (found != libraries_.end())
            return found->second;
        const platform::LoadedLibrary library = platform::LoadComponent(path);
        if (library.loaded)
            libraries_.emplace(path, library);
        return library;
    }

    std::mutex mutex_;
    std::map<std::wstring, platform::LoadedLibrary> libraries_;
};

// Settings, jobs and machine have no default of the same kind: the first two are loaded when they
// are asked for and the third is made by those who need it.
struct Seams {
    Seam<IClock, SystemClock> clock;
    Seam<IFreeSpace, VolumeSpace> freeSpace;
    Seam<IPathTokens, TokenTable> tokens;
    Seam<IObjectLoader, ComponentLoader> loader;
    std::atomic<ZEL::ISettingsManager*> settings{nullptr};
    std::atomic<ZEL::IJobManager*> jobs{nullptr};
    std::atomic<IMachineDescription*> machine{nullptr};
};

Seams& All() noexcept {
    static NeverDestroyed<Seams> seams;
    return *seams;
}

// The injected service with a new reference, else the installed one.
template <typename Interface>
ZEL::TobResult Open(std::atomic<Interface*>& injected, const wchar_t* component,
                    const ZEL::GUID& objectId, const ZEL::GUID& iid, Interface** out) noexcept {
    if (out == nullptr)
        return ZEL::TOBERR_INVALID_ARG;
    *out = injected.load(std::memory_order_acquire);
    // The host keeps an injected service alive for as long as it may be asked for.
    if (*out != nullptr) {
        (*out)->AddRef();
        return ZEL::TOB_OK;
    }
    try {
        void* object = nullptr;
        const ZEL::TobResult result = LoadInstalledObject(component, objectId, iid, &object);
        *out = static_cast<Interface*>(object);
        return Succeeded(result) && object == nullptr ? ZEL::TOBERR_NO_INTERFACE : result;
    } catch (...) {
        return ZEL::TOBERR_OUT_OF_MEMORY;
    }
}

}  // namespace

IClock& Clock() noexcept {
    return All().clock.Get();
}
void SetClock(IClock* replacement) noexcept {
    All().clock.Replace(replacement);
}

IFreeSpace& FreeSpace() noexcept {
    return All().freeSpace.Get();
}
void SetFreeSpace(IFreeSpace* replacement) noexcept {
    All().freeSpace.Replace(replacement);
}

IPathTokens& PathTokens() noexcept {
    return All().tokens.Get();
}
void SetPathTokens(IPathTokens* replacement) noexcept {
    All().tokens.Replace(replacement);
}
void SetPathToken(const std::wstring& token, const std::wstring& value) {
    All().tokens.Own().Set(token, value);
}
bool ResolvePathVariable(const std::wstring& token, std::wstring& value) noexcept {
    return PathTokens().Resolve(token, value);
}

bool InstallDirectory(std::wstring& directory) noexcept {
    try {
        if (ResolvePathVariable(L"%ZELInstallDir%", directory))
            return true;
        directory = platform::LibraryFolder();
        return !directory.empty();
    } catch (...) {
        return false;
    }
}

IObjectLoader& ObjectLoader() noexcept {
    return All().loader.Get();
}
void SetObjectLoader(IObjectLoader* replacement) noexcept {
    All().loader.Replace(replacement);
}

ZEL::TobResult LoadInstalledObject(const std::wstring& name, const ZEL::GUID& objectId,
                                   const ZEL::GUID& iid, void** out) noexcept {
    // The longest path that every system's loader takes.
    constexpr std::size_t mostCharacters = 259;
    if (out == nullptr)
        return ZEL::TOBERR_INVALID_ARG;
    *out = nullptr;
    try {
        std::wstring directory;
        if (!InstallDirectory(directory))
            return ZEL::TOBERR_PATH_NOT_FOUND;
        const std::wstring path = JoinPath(directory, name + platform::ComponentExtension());
        if (path.size() > mostCharacters)
            return ZEL::TOBERR_BAD_LIBRARY;
        return ObjectLoader().LoadObject(path, objectId, iid, out);
    } catch (...) {
        return ZEL::TOBERR_OUT_OF_MEMORY;
    }
}

ZEL::TobResult OpenSettings(ZEL::ISettingsManager** out) noexcept {
    return Open(All().settings, L"wmSet", ZEL::settingsManagerObjectId, ZEL::iidSettingsManager,
                out);
}
void SetSettings(ZEL::ISettingsManager* replacement) noexcept {
    All().settings.store(replacement, std::memory_order_release);
}

ZEL::TobResult OpenJobManager(ZEL::IJobManager** out) noexcept {
    return Open(All().jobs, L"wmJobMgr", ZEL::iidJobManager, ZEL::iidJobManager, out);
}
void SetJobManager(ZEL::IJobManager* replacement) noexcept {
    All().jobs.store(replacement, std::memory_order_release);
}

IMachineDescription* InjectedMachine() noexcept {
    return All().machine.load(std::memory_order_acquire);
}
void SetMachine(IMachineDescription* replacement) noexcept {
    All().machine.store(replacement, std::memory_order_release);
}

}  // namespace wm
