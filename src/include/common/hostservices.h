#pragma once

#include <cstdint>
#include <string>

#include "common/errorreport.h"
#include "common/jobmanager.h"
#include "common/settings.h"
#include "common/trace.h"
#include "common/utctime.h"
#include "common/wmapi.h"

// The seams between the store and its host. Each is one small interface with a real default that a
// host or a test may replace for the whole process. A replacement must outlive its use; null brings
// the default back. Replacing is safe at any time, but an operation in progress may still use the
// former one.
//
// The references that Clock and its like give are for a call or a routine, not for keeping: a kept
// one would stay with the former service after a replacement. Injected pointers are not counted;
// the defaults live as long as the process.
//
// Two kinds of injection differ on purpose. Clock, free space, tokens and loader always answer, so
// that their users need no failure path. Settings and the job manager may be missing on a machine,
// so opening them gives a result.
namespace wm {

// Called by any thread, also under locks of the store. Two clocks, since each is wrong for the
// other's use. UtcNow gives times that are stored and shown, and jumps when somebody sets the
// clock. TickCount64 only ever grows; waiting, ages and due times go by it.
class IClock {
public:
    virtual ~IClock() = default;
    virtual SystemTime UtcNow() noexcept = 0;
    // Milliseconds since the system started, sleep included.
    virtual std::uint64_t TickCount64() noexcept = 0;
};
// Tests move time by replacing the clock; nothing in the store asks the system itself.
WMLIB_API IClock& Clock() noexcept;
WMLIB_API void SetClock(IClock* replacement) noexcept;

// Called by any thread, for each batch. A failure counts as room enough for a batch, and is
// reported by the disk monitor.
class IFreeSpace {
public:
    virtual ~IFreeSpace() = default;
    // Bytes that the caller may still use on the volume that holds `path`.
    virtual ZEL::HRESULT AvailableBytes(const std::wstring& path,
                                        std::uint64_t* bytes) noexcept = 0;
};
WMLIB_API IFreeSpace& FreeSpace() noexcept;
WMLIB_API void SetFreeSpace(IFreeSpace* replacement) noexcept;

// Values of tokens such as L"%ZELDataStore%". The default knows what SetPathToken was told, and
// otherwise the environment variable of the token's name. Called by any thread.
class IPathTokens {
public:
    virtual ~IPathTokens() = default;
    // False when the token has no value.
    virtual bool Resolve(const std::wstring& token, std::wstring& value) noexcept = 0;
};
// A replacement hides what SetPathToken was told, until null brings the default back.
WMLIB_API IPathTokens& PathTokens() noexcept;
WMLIB_API void SetPathTokens(IPathTokens* replacement) noexcept;
// Tells the default a value; an empty one removes it. `token` carries its % signs.
WMLIB_API void SetPathToken(const std::wstring& token, const std::wstring& value);
// Asks the present service. On failure `value` is unspecified.
WMLIB_API bool ResolvePathVariable(const std::wstring& token, std::wstring& value) noexcept;

// The directory that holds the components: %ZELInstallDir% when set, else that of wmLib itself.
WMLIB_API bool InstallDirectory(std::wstring& directory) noexcept;

// Loads components and makes their objects. Called by any thread.
class IObjectLoader {
public:
    virtual ~IObjectLoader() = default;
    // Loads the library at `libraryPath` when needed, asks its GetFactory for `objectId` and makes
    // one object with the face `iid`. Libraries stay loaded until the process ends.
    virtual ZEL::TobResult LoadObject(const std::wstring& libraryPath, const ZEL::GUID& objectId,
                                      const ZEL::GUID& iid, void** out) noexcept = 0;
};
WMLIB_API IObjectLoader& ObjectLoader() noexcept;
WMLIB_API void SetObjectLoader(IObjectLoader* replacement) noexcept;

// Loads `objectId` from the component file `name` (such as L"wmSet", without extension) in the
// install directory. TOBERR_PATH_NOT_FOUND without an install directory, TOBERR_BAD_LIBRARY for a
// path of more than 259 characters, otherwise the loader's own result.
WMLIB_API ZEL::TobResult LoadInstalledObject(const std::wstring& name, const ZEL::GUID& objectId,
                                             const ZEL::GUID& iid, void** out) noexcept;

// The settings service with a new reference: the injected one, else the one of wmSet. On failure
// `*out` is null. Without the component's file the result is the loader's.
WMLIB_API ZEL::TobResult OpenSettings(ZEL::ISettingsManager** out) noexcept;
// The pointer is lent, so it is to be taken back, with null, before the object goes.
WMLIB_API void SetSettings(ZEL::ISettingsManager* replacement) noexcept;

// The job manager with a new reference: the injected one, else the one of wmJobMgr.
WMLIB_API ZEL::TobResult OpenJobManager(ZEL::IJobManager** out) noexcept;
WMLIB_API void SetJobManager(ZEL::IJobManager* replacement) noexcept;

// The machine whose paths queries are normalised for. Null means the one that the process runs on.
// Its users' variables are read once, for the first query that needs them: what is injected later
// changes nothing of those.
class IMachineDescription;
WMLIB_API IMachineDescription* InjectedMachine() noexcept;
WMLIB_API void SetMachine(IMachineDescription* replacement) noexcept;

// Null brings silence back. A sink must stay alive after it was replaced until no thread can be in
// it any more: a call that has begun is not waited for.
WMLIB_API void SetErrorReportSink(IErrorReportSink* sink) noexcept;
WMLIB_API void SetTraceSink(ITraceSink* sink) noexcept;

}  // namespace wm
