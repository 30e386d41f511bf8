#include "zelstore/jobs/jobworkercontroller.h"

#include "common/hostservices.h"
#include "zelstore/jobs/jobtriggers.h"

// How a run is waited for. The manager tells a job's status on a thread of its own, so that a run
// may have begun and ended before the caller that asked for it comes to wait. Therefore
//
//   - the number of starts heard so far is taken before the run is asked for;
//   - a wait looks at the status first, and returns when it is what was waited for;
//   - otherwise it waits until more starts (or ends) were heard than were known, or for its cancel.
//
// statusLock_ orders the status against the manager's thread and is released before any wait.
// Uninitialize lets all waits end: it drops the job first, so that none begins afterwards.

namespace ZEL {

namespace {

bool IsRunning(std::int32_t status) {
    return status == jobStatus::starting || status == jobStatus::running;
}

bool HasEnded(std::int32_t status) {
    return status == jobStatus::ended || status == jobStatus::failed;
}

bool IsInactive(std::int32_t status) {
    return status == jobStatus::noRun || HasEnded(status);
}

// An event that can't be reset is a state that can't be explained to a caller.
bool ResetReported(CountedEvent& event) {
    if (event.Reset())
        return true;
    wm::Trace(wm::message::jobEventNotReset, hr::unexpected);
    wm::ReportError(hr::unexpected);
    return false;
}

}  // namespace

TobResult CJobWorkerController::QueryInterface(const GUID& iid, void** out) {
    wmJobMgr::IStatusCallback* const face = this;
    return Answer(iid, out, {{wmJobMgr::iidStatusCallback, face}});
}

HRESULT CJobWorkerController::Initialize() {
    if (!jobEndedEvent_.Create() || !jobStartedEvent_.Create())
        return wm::Traced(hr::outOfMemory, wm::message::jobEventNotMade);
    return jobManager_.ObtainOnce([](IJobManager** manager) {
        const TobResult opened = wm::OpenJobManager(manager);
        if (*manager != nullptr)
            return hr::ok;
        IgnoreResult(opened, "whatever the reason, there is no job manager");
        return wm::Traced(ToHResult(TOBERR_NO_INTERFACE), wm::message::noJobManager);
    });
}

HRESULT CJobWorkerController::Uninitialize() {
    jobManager_.Drop();
    job_.Drop();
    // No status will be heard any more.
    jobStartedEvent_.Set();
    jobEndedEvent_.Set();
    return hr::ok;
}

// The manager holds a reference to this object for as long as it has the callback: without this
// step the object would never go.
HRESULT CJobWorkerController::Detach() {
    const CountedPtr<IJobManager> manager = jobManager_.Get();
    return manager ? manager->SetStatusCallback(nullptr) : hr::ok;
}

HRESULT CJobWorkerController::AttachJob(const GUID& id) {
    const CountedPtr<IJobManager> manager = jobManager_.Get();
    if (!manager)
        return hr::ok;
    CountedPtr<IJob> found;
    const HRESULT result = manager->GetJob(id, found.Receive());
    if (Failed(result) || !found)
        return wm::Traced(result, wm::message::jobNotKnown);
    return Follow(*manager, found, id);
}

HRESULT CJobWorkerController::AttachJobByName(const wchar_t* name) {
    if (name == nullptr)
        return hr::invalidArgument;
    const CountedPtr<IJobManager> manager = jobManager_.Get();
    if (!manager)
        return hr::ok;
    HRESULT result = hr::ok;
    CountedPtr<IJob> found = FindByName(*manager, name, &result);
    if (!found)
        return wm::Traced(result, wm::message::jobNameNotKnown);
    GUID id;
    result = found->GetId(&id);
    if (Failed(result))
        return wm::Traced(result, wm::message::jobWithoutId);
    return Follow(*manager, found, id);
}

CountedPtr<IJob> CJobWorkerController::FindByName(IJobManager& manager, std::wstring_view name,
                                                  HRESULT* result) {
    CountedPtr<IJobList> list;
    *result = manager.EnumerateJobs(list.Receive());
    if (Failed(*result) || !list)
        return nullptr;
    *result = hr::notFound;
    for (std::size_t i = 0; i < list->Count(); ++i) {
        CountedPtr<ITobBase> item;
        CountedPtr<IJobInfo> info;
        CountedPtr<IStringValue> itemName;
        if (Failed(list->GetItem(i, item.Receive())) || !item ||
            Failed(item->QueryInterface(iidJobInfo, info.ReceiveVoid())) ||
            Failed(info->GetName(itemName.Receive())) || !itemName || itemName->GetText() != name)
            continue;
        CountedPtr<IJob> job;
        if (Succeeded(item->QueryInterface(iidJob, job.ReceiveVoid())))
            return job;
    }
    return nullptr;
}

HRESULT CJobWorkerController::Follow(IJobManager& manager, const CountedPtr<IJob>& job,
                                     const GUID& id) {
    // Ahead of the callback, as the identifier is: the first status that comes must already be
    // known for this job's.
    job_.Store(job);
    {
        const wm::Hold hold(statusLock_);
        jobId_ = id;
    }
    const HRESULT result = manager.SetStatusCallback(this);
    if (Failed(result))
        return wm::Traced(result, wm::message::callbackNotTaken);
    TakeStatus(*job);
    return hr::ok;
}

// What the job tells is older than what was heard of it while it was asked.
void CJobWorkerController::TakeStatus(IJob& job) {
    std::uint64_t heard = 0;
    {
        const wm::Hold hold(statusLock_);
        heard = statusesHeard_;
    }
    std::int32_t status = 0;
    if (Failed(wm::Traced(job.GetStatus(&status), wm::message::jobWithoutStatus)))
        return;
    {
        const wm::Hold hold(statusLock_);
        if (heard == statusesHeard_)
            jobStatus_ = status;
    }
    ResetReported(jobEndedEvent_);
    ResetReported(jobStartedEvent_);
}

HRESULT CJobWorkerController::OnStatusChanged(IJobStatus* status) {
    GUID id;
    std::int32_t code = 0;
    if (status == nullptr || !status->GetJobId(&id)) {
        wm::Trace(wm::message::statusWithoutJob);
        return hr::ok;
    }
    // Foreign code: asked before the lock is taken.
    const bool hasCode = status->GetStatusCode(&code);
    const wm::Hold hold(statusLock_);
    // The manager tells of every job that it has.
    if (!(id == jobId_)) {
        wm::Trace(wm::message::statusOfAnotherJob);
        return hr::ok;
    }
    if (!hasCode)
        return hr::ok;
    jobStatus_ = code;
    ++statusesHeard_;
    if (IsRunning(code))
        jobStartedEvent_.Set();
    else if (HasEnded(code))
        jobEndedEvent_.Set();
    else if (code == jobStatus::noRun)
        wm::Trace(wm::message::jobDoesNotRun);
    return hr::ok;
}

HRESULT CJobWorkerController::IsActive(bool* active) {
    if (active == nullptr)
        return hr::invalidArgument;
    *active = false;
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    std::int32_t status = 0;
    const HRESULT result = job->GetStatus(&status);
    if (Succeeded(result))
        *active = !IsInactive(status);
    return wm::Traced(result, wm::message::jobWithoutStatus);
}

// A run that was asked for shows in the job's status only once it begins.
HRESULT CJobWorkerController::IsActiveOrQueued(bool* active) {
    const HRESULT result = IsActive(active);
    const CountedPtr<IJob> job = job_.Get();
    if (Failed(result) || *active || !job)
        return result;
    bool present = false;
    std::uint32_t runs = 0;
    const HRESULT asked = job->GetRunInformation(&present, &runs);
    if (Succeeded(asked))
        *active = present && runs != 0;
    return wm::Traced(asked, wm::message::jobWithoutRuns);
}

HRESULT CJobWorkerController::StopJob() {
    const CountedPtr<IJob> job = job_.Get();
    return job ? wm::Traced(job->Stop(), wm::message::jobNotStopped) : hr::ok;
}

HRESULT CJobWorkerController::RunJob(HANDLE cancel) {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    if (!ResetReported(jobStartedEvent_))
        return hr::unexpected;
    const std::uint64_t starts = jobStartedEvent_.Count();
    const HRESULT result = job->Start(0);
    if (Failed(result))
        return wm::Traced(result, wm::message::jobRunNotStarted);
    return WaitForStart(starts, cancel);
}

HRESULT CJobWorkerController::RunJobNow() {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    if (!ResetReported(jobStartedEvent_))
        return hr::unexpected;
    return job->Start(0);
}

HRESULT CJobWorkerController::RunJobAndWait(HANDLE cancel) {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    ResetReported(jobStartedEvent_);
    ResetReported(jobEndedEvent_);
    const std::uint64_t starts = jobStartedEvent_.Count();
    const HRESULT started = job->Start(0);
    // Somebody else's run is as good: its start was heard, or will be, and its end is what is
    // waited for.
    if (started != jobAlreadyRunning) {
        if (Failed(started))
            return wm::Traced(started, wm::message::jobRunNotStarted);
        const HRESULT result = WaitForStart(starts, cancel);
        if (Failed(result))
            return result;
    }
    return WaitForEnd(cancel);
}

// The count is known already when the job is looked at: Uninitialize first drops the job, then lets
// all waits end.
HRESULT CJobWorkerController::WaitForStart(std::uint64_t knownStarts, HANDLE cancel) {
    if (!job_.Get())
        return hr::ok;
    {
        const wm::Hold hold(statusLock_);
        if (IsRunning(jobStatus_))
            return hr::ok;
    }
    return jobStartedEvent_.WaitBehind(knownStarts, cancel);
}

HRESULT CJobWorkerController::WaitForEnd(HANDLE cancel) {
    std::uint64_t knownEnds = 0;
    {
        const wm::Hold hold(statusLock_);
        if (IsInactive(jobStatus_))
            return hr::ok;
        knownEnds = jobEndedEvent_.Count();
    }
    if (!job_.Get())
        return hr::ok;
    return jobEndedEvent_.WaitBehind(knownEnds, cancel);
}

HRESULT CJobWorkerController::GetId(GUID* id) {
    const CountedPtr<IJob> job = job_.Get();
    return job ? job->GetId(id) : hr::ok;
}

HRESULT CJobWorkerController::GetStatus(std::int32_t* status) {
    const CountedPtr<IJob> job = job_.Get();
    return job ? job->GetStatus(status) : hr::ok;
}

HRESULT CJobWorkerController::Start(std::uint32_t flags) {
    const CountedPtr<IJob> job = job_.Get();
    return job ? job->Start(flags) : hr::ok;
}

HRESULT CJobWorkerController::GetEnabled(bool* enabled) {
    const CountedPtr<IJob> job = job_.Get();
    return job ? job->GetEnabled(enabled) : hr::ok;
}

// Saving makes the manager count the schedule anew, so the flag is written only when it differs.
HRESULT CJobWorkerController::SetEnabled(bool enabled) {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    bool present = false;
    HRESULT result = job->GetEnabled(&present);
    if (Failed(result) || present == enabled)
        return wm::Traced(result, wm::message::jobWithoutFlag);
    result = job->SetEnabled(enabled);
    if (Succeeded(result))
        result = job->Save();
    return wm::Traced(result, wm::message::jobFlagNotSet);
}

HRESULT CJobWorkerController::SyncSchedule() {
    const CountedPtr<IJobManager> manager = jobManager_.Get();
    if (!manager || !job_.Get())
        return hr::ok;
    GUID id;
    {
        const wm::Hold hold(statusLock_);
        id = jobId_;
    }
    CountedPtr<IJobDefinition> definition;
    const HRESULT result = manager->GetDefinition(id, definition.Receive());
    if (Failed(result) || !definition)
        return wm::Traced(result, wm::message::definitionNotRead);
    return SyncFromDefinition(*definition);
}

HRESULT CJobWorkerController::SyncFromDefinition(IJobDefinition& definition) {
    // What was stored by somebody else counts from now on, its delay as well.
    constexpr bool withDelay = true;
    PeriodicTrigger stored;
    HRESULT result = ReadPeriodicTrigger(definition, &stored);
    if (result == hr::ok)
        result = SetPeriodicSchedule(stored.period, stored.delay, stored.makeUp, withDelay);
    if (result == hr::ok)
        return result;
    bool enabled = false;
    result = definition.GetEnabled(&enabled);
    return Failed(result) ? wm::Traced(result, wm::message::definitionWithoutFlag)
                          : SetEnabled(enabled);
}

HRESULT CJobWorkerController::SetPeriodicSchedule(std::uint32_t period, std::uint32_t delay,
                                                  bool makeUp, bool restart) {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    const TriggerChange values[] = {{jobTrigger::kind, {{jobTrigger::periodic, 0, 0}}},
                                    {jobTrigger::period, {{period, 0, 0}}},
                                    {jobTrigger::delay, {{delay, 0, 0}}},
                                    {jobTrigger::makeUp, {{makeUp ? 1U : 0U, 0, 0}}}};
    bool changed = false;
    HRESULT result = ChangeTrigger(*job, values, &changed);
    bool enabled = false;
    if (Succeeded(result) && changed)
        result = job->GetEnabled(&enabled);
    // Of a job that is not enabled no next run must be set: the flag would be of no use.
    if (enabled)
        result = job->Reschedule(period, restart ? delay : 0, jobRescheduleBoth);
    return wm::Traced(result, wm::message::periodicScheduleNotSet);
}

HRESULT CJobWorkerController::SetDailySchedule(std::uint32_t hour, std::uint32_t minute,
                                               std::uint32_t second) {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    const TriggerChange values[] = {{jobTrigger::kind, {{jobTrigger::daily, 0, 0}}},
                                    {jobTrigger::timeOfDay, {{hour, minute, second}}}};
    bool changed = false;
    return wm::Traced(ChangeTrigger(*job, values, &changed), wm::message::dailyTimeNotSet);
}

HRESULT CJobWorkerController::SetScheduleWindow(std::uint32_t from, std::uint32_t to) {
    const CountedPtr<IJob> job = job_.Get();
    if (!job)
        return hr::ok;
    const TriggerChange values[] = {{jobTrigger::windowFrom, {{from, 0, 0}}},
                                    {jobTrigger::windowTo, {{to, 0, 0}}}};
    bool changed = false;
    return wm::Traced(ChangeTrigger(*job, values, &changed), wm::message::scheduleWindowNotSet);
}

}  // namespace ZEL
