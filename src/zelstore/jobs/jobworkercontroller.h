#pragma once

#include "common/itobbaseimpl.h"
#include "common/jobmanager.h"
#include "zelstore/jobs/countedevent.h"
#include "zelstore/jobs/izeljobcontroller.h"
#include "zelstore/jobs/lazyinterface.h"

namespace ZEL {

// Follows one job of the host's job manager: finds it, hears of its status on a thread of the
// manager, starts it, waits for it and changes its schedule. While it is attached, the manager
// holds a reference to it, which Detach gives back. A wait ends with the status that it waits for,
// with its cancel event, or with Uninitialize. Two objects that follow jobs of one manager disturb
// each other, since it knows one callback.
//
// The status is kept here as it is heard, and asked for where an answer has to be right at that
// moment. No lock is held while the job or the manager is called, which may call back at once.
class CJobWorkerController final : public TobObject<IZELJobController, wmJobMgr::IStatusCallback> {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override;

    HRESULT Initialize() override;
    HRESULT Uninitialize() override;
    HRESULT Detach() override;
    HRESULT AttachJobByName(const wchar_t* name) override;
    HRESULT AttachJob(const GUID& id) override;
    HRESULT IsActive(bool* active) override;
    HRESULT StopJob() override;
    HRESULT RunJob(HANDLE cancel) override;
    HRESULT RunJobNow() override;
    HRESULT RunJobAndWait(HANDLE cancel) override;
    HRESULT IsActiveOrQueued(bool* active) override;
    HRESULT WaitForEnd(HANDLE cancel) override;
    HRESULT GetId(GUID* id) override;
    HRESULT GetStatus(std::int32_t* status) override;
    HRESULT Start(std::uint32_t flags) override;
    HRESULT GetEnabled(bool* enabled) override;
    HRESULT SetEnabled(bool enabled) override;
    HRESULT SyncSchedule() override;
    HRESULT SetPeriodicSchedule(std::uint32_t period, std::uint32_t delay, bool makeUp,
                                bool restart) override;
    HRESULT SetDailySchedule(std::uint32_t hour, std::uint32_t minute,
                             std::uint32_t second) override;
    HRESULT SetScheduleWindow(std::uint32_t from, std::uint32_t to) override;

    HRESULT OnStatusChanged(IJobStatus* status) override;
    HRESULT Reserved() override { return hr::ok; }

private:
    // Makes `job` the one that is followed; its status is asked for after the callback is set, so
    // that no change falls in between.
    HRESULT Follow(IJobManager& manager, const CountedPtr<IJob>& job, const GUID& id);
    void TakeStatus(IJob& job);
    // The job of the list that has the name; null, with the failure, when there is none.
    CountedPtr<IJob> FindByName(IJobManager& manager, std::wstring_view name, HRESULT* result);
    HRESULT SyncFromDefinition(IJobDefinition& definition);
    HRESULT WaitForStart(std::uint64_t knownStarts, HANDLE cancel);

    // Null before they were found and after Uninitialize.
    LazyInterface<IJobManager> jobManager_;
    LazyInterface<IJob> job_;
    CountedEvent jobEndedEvent_;    // the status turned to 7 or 8
    CountedEvent jobStartedEvent_;  // the status turned to 1 or 2
    // Orders what is heard against what is asked. Never held during a call of the job or its
    // manager.
    mutable wm::Lock statusLock_{wm::LockRank::jobController};
    GUID jobId_ GUARDED_BY(statusLock_);
    std::int32_t jobStatus_ GUARDED_BY(statusLock_) = jobStatus::noRun;
    // Tells an answer that was overtaken by a change.
    std::uint64_t statusesHeard_ GUARDED_BY(statusLock_) = 0;
};

}  // namespace ZEL
