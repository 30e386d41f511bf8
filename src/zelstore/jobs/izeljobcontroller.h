#pragma once

#include "common/eventobject.h"
#include "common/itobbase.h"

namespace ZEL {

// The store's handle on one job of the host's job manager. While there is no job, every operation
// does nothing and succeeds. May be used by any thread. Waits end early when `cancel`, which may be
// null, is set.
class IZELJobController : public ITobBase {
public:
    virtual HRESULT Initialize() = 0;
    virtual HRESULT Uninitialize() = 0;
    virtual HRESULT Detach() = 0;
    virtual HRESULT AttachJobByName(const wchar_t* name) = 0;
    virtual HRESULT AttachJob(const GUID& id) = 0;
    virtual HRESULT IsActive(bool* active) = 0;
    virtual HRESULT StopJob() = 0;
    virtual HRESULT RunJob(HANDLE cancel) = 0;
    // Starts the job and does not wait; the job runs on a thread of its own.
    virtual HRESULT RunJobNow() = 0;
    virtual HRESULT RunJobAndWait(HANDLE cancel) = 0;
    virtual HRESULT IsActiveOrQueued(bool* active) = 0;
    virtual HRESULT WaitForEnd(HANDLE cancel) = 0;
    virtual HRESULT GetId(GUID* id) = 0;
    virtual HRESULT GetStatus(std::int32_t* status) = 0;
    virtual HRESULT Start(std::uint32_t flags) = 0;
    virtual HRESULT GetEnabled(bool* enabled) = 0;
    virtual HRESULT SetEnabled(bool enabled) = 0;
    virtual HRESULT SyncSchedule() = 0;
    // Seconds from run to run, and to the first one; `makeUp` runs once more for a run that fell
    // due during another. Only with `restart` a running schedule waits for `delay` anew.
    virtual HRESULT SetPeriodicSchedule(std::uint32_t period, std::uint32_t delay, bool makeUp,
                                        bool restart) = 0;
    // UTC.
    virtual HRESULT SetDailySchedule(std::uint32_t hour, std::uint32_t minute,
                                     std::uint32_t second) = 0;
    // Seconds of the day, UTC: runs start between them alone. Equal ones are no limit.
    virtual HRESULT SetScheduleWindow(std::uint32_t from, std::uint32_t to) = 0;

protected:
    ~IZELJobController() = default;
};

}  // namespace ZEL
