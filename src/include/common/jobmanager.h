#pragma once

#include <cstdint>

#include "common/itobbase.h"

namespace ZEL {

// A status change of a job, as told to a status callback; valid during the call.
class IJobStatus {
public:
    virtual bool GetJobId(GUID* id) = 0;
    virtual bool GetStatusCode(std::int32_t* code) = 0;

protected:
    ~IJobStatus() = default;
};

// Values of a job's status. Others may occur and count as active.
namespace jobStatus {
inline constexpr std::int32_t noRun = 0;
inline constexpr std::int32_t starting = 1;
inline constexpr std::int32_t running = 2;
inline constexpr std::int32_t ended = 7;
inline constexpr std::int32_t failed = 8;
}  // namespace jobStatus

}  // namespace ZEL

namespace wmJobMgr {

// Hears of every job's changes, on a thread of the job manager.
class IStatusCallback : public ZEL::ITobBase {
public:
    virtual ZEL::HRESULT OnStatusChanged(ZEL::IJobStatus* status) = 0;
    virtual ZEL::HRESULT Reserved() = 0;

protected:
    ~IStatusCallback() = default;
};

inline constexpr ZEL::GUID iidStatusCallback =
    ZEL::MakeGuid("EB9FCBE0-DD4A-49B1-81A9-A0C13E34667E");

}  // namespace wmJobMgr

namespace ZEL {

// One job of the manager.
class IJob : public ITobBase {
public:
    virtual HRESULT GetId(GUID* id) = 0;
    virtual HRESULT GetStatus(std::int32_t* status) = 0;
    // Asks for a run and does not wait. 0x8004131F when it runs already. `flags` is 0.
    virtual HRESULT Start(std::uint32_t flags) = 0;
    virtual HRESULT Stop() = 0;
    virtual HRESULT GetEnabled(bool* enabled) = 0;
    virtual HRESULT SetEnabled(bool enabled) = 0;
    virtual HRESULT Save() = 0;

protected:
    ~IJob() = default;
};

// The jobs of this process or machine.
class IJobManager : public ITobBase {
public:
    // One callback for all jobs; null removes it. The manager holds a reference.
    virtual HRESULT SetStatusCallback(wmJobMgr::IStatusCallback* callback) = 0;
    // 0x80070490 when there is no such job.
    virtual HRESULT GetJob(const GUID& id, IJob** job) = 0;

protected:
    ~IJobManager() = default;
};

// Where a host tells the in-process manager what its jobs do. The manager offers it beside
// IJobManager.
class IJobRegistry : public ITobBase {
public:
    // `run` is called with `context` on the job's own thread, once for each run; it and `context`
    // stay in use until the process ends. A job that is known already gets the new function.
    virtual HRESULT RegisterJob(const GUID& id, HRESULT (*run)(void* context), void* context) = 0;

protected:
    ~IJobRegistry() = default;
};
inline constexpr GUID iidJobRegistry = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B16");

inline constexpr HRESULT jobAlreadyRunning = hr::Code(0x8004131F);

// Both the object and its interface.
inline constexpr GUID iidJobManager = MakeGuid("94BA88EB-B1EC-4031-A960-79F67771AB68");
inline constexpr GUID iidJob = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B15");
inline constexpr GUID storeJobId = MakeGuid("0DBA0098-010E-4759-BBA5-990F9AC492B9");

}  // namespace ZEL
