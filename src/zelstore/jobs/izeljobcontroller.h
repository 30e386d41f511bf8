#pragma once

#include "common/eventobject.h"
#include "common/itobbase.h"

namespace ZEL {

// The store's handle on one job of the host's job manager. While there is no job, every operation
// does nothing and succeeds. May be used by any thread. Waits end early when `cancel`, which may be
// null, is set.
//
// A failure is the job manager's own result, passed on; an output is then not to be used.
//
// Order: Initialize, AttachJob or AttachJobByName, any number of the others, Detach, Uninitialize.
class IZELJobController : public ITobBase {
public:
    // Finds the job manager. 0x80004002 without one, 0x8007000E without memory. Does not look for
    // any job. After Uninitialize no manager is looked for any more: make a new controller.
    virtual HRESULT Initialize() = 0;
    // Lets job and manager go, and ends all waits, which then succeed. Does not wait for the
    // waiters. Always succeeds.
    virtual HRESULT Uninitialize() = 0;
    // Takes the status callback away from the manager. Needed, since the manager holds a reference
    // to this object until then. The job stays; a status that is under way may still come.
    virtual HRESULT Detach() = 0;
    // Both find the job and begin to hear of its status. The manager has room for one callback: the
    // former one of whatever user is replaced. When nothing is found, the former job stays. By
    // name, the first job of the list that has it exactly: 0x80070490 when there is none,
    // 0x80070057 for null.
    virtual HRESULT AttachJobByName(const wchar_t* name) = 0;
    virtual HRESULT AttachJob(const GUID& id) = 0;
    // Both ask the job itself, not what was heard of it. Any status but no run, ended and failed is
    // active; queued is a run that was asked for and has not begun. False without a job.
    virtual HRESULT IsActive(bool* active) = 0;
    // Asks a run to end and does not wait for it.
    virtual HRESULT StopJob() = 0;
    // Starts the job and waits until a run has begun. 0x8004131F, without a wait, when it runs
    // already; RunJobNow gives that too. Runs that other users start count as well: what is wanted
    // is that the job runs.
    virtual HRESULT RunJob(HANDLE cancel) = 0;
    // Starts the job and does not wait; the job runs on a thread of its own.
    virtual HRESULT RunJobNow() = 0;
    // The same, and waits for the run's end. A run in progress is waited for in place of a new one.
    // Whether a run failed it does not tell: ask for the status.
    virtual HRESULT RunJobAndWait(HANDLE cancel) = 0;
    virtual HRESULT IsActiveOrQueued(bool* active) = 0;
    // Returns at once when the job is not active by what was last heard.
    virtual HRESULT WaitForEnd(HANDLE cancel) = 0;
    // These ask the job itself. Without one, the outputs stay as they were.
    virtual HRESULT GetId(GUID* id) = 0;
    virtual HRESULT GetStatus(std::int32_t* status) = 0;
    // RunJobNow without the preparation of waits; `flags` go to the manager.
    virtual HRESULT Start(std::uint32_t flags) = 0;
    // Whether the schedule starts runs. SetEnabled stores the change, and does nothing when the job
    // has that flag already.
    virtual HRESULT GetEnabled(bool* enabled) = 0;
    virtual HRESULT SetEnabled(bool enabled) = 0;
    // Takes the schedule over from the stored definition, which another process may have changed: a
    // periodic one is set, and begins anew where it differs. Of other kinds, and where that fails,
    // only the flag is taken.
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
