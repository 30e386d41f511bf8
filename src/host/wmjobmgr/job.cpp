#include "job.h"

#include "guarded.h"

// A job and its runs. One run goes on at a time, on a thread that is made for it and ends when no
// further run was asked for. Three flags tell how far a run has come: `active_` from the asking to
// the end, `queued_` until it begins, and `looping_` as long as the thread will look at `active_`
// once more before it ends. The last one closes a gap: who hears of a run's end may ask for the
// next one while the thread is still in the telling, and a thread can't be started that has not
// ended. Whoever finds `looping_` set leaves the run to that thread; whoever finds it clear knows
// that the thread has nothing left to do and may wait for its end, even under the lock.
//
// A run that falls due during another would be a second one at the same time. It is remembered,
// when the trigger asks for it, and made up for as soon as the present run has ended; however many
// were missed, one run makes up for all. Stopping the job gives up what was missed as well: whoever
// stops it does not want it to begin again at once.
//
// Changes of status are told after the lock is released, as the callback is the host's and may ask
// anything of the job.

namespace wmjobmgr {

using ZEL::HRESULT;
namespace hr = ZEL::hr;
namespace jobTrigger = ZEL::jobTrigger;

ZEL::CountedPtr<Job> Job::Create(const ZEL::GUID& id, std::wstring name, IListener& listener) {
    ZEL::CountedPtr<Job> job(new Job(id, std::move(name), listener));
    return job->stop_.Create(wm::EventReset::manual) ? job : nullptr;
}

ZEL::TobResult Job::QueryInterface(const ZEL::GUID& iid, void** out) {
    ZEL::IJob* const job = this;
    ZEL::IJobInfo* const info = this;
    return Answer(iid, out, {{ZEL::iidJob, job}, {ZEL::iidJobInfo, info}});
}

HRESULT Job::GetId(ZEL::GUID* id) {
    if (id == nullptr)
        return hr::invalidArgument;
    *id = id_;
    return hr::ok;
}

HRESULT Job::GetName(ZEL::IStringValue** name) {
    if (name == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    *name = wm::CreateStringValue(name_.c_str());
    return *name != nullptr ? hr::ok : hr::outOfMemory;
}

HRESULT Job::GetStatus(std::int32_t* status) {
    if (status == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    *status = status_;
    return hr::ok;
}

// The run that is going on is not told here: its status is.
HRESULT Job::GetRunInformation(bool* present, std::uint32_t* result) {
    if (present == nullptr || result == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    *present = queued_;
    *result = queued_ ? 1 : 0;
    return hr::ok;
}

// A job that is not enabled can be started by hand all the same.
HRESULT Job::Start(std::uint32_t) {
    const wm::Hold hold(lock_);
    return StartLocked();
}

// Who was told of the end may start the job again at once, also from the callback itself: a thread
// that is about to end takes the new run as well.
HRESULT Job::StartLocked() {
    if (active_)
        return ZEL::jobAlreadyRunning;
    stop_.Reset();
    if (!looping_) {
        thread_.Wait();  // its last act was to clear looping_
        if (!thread_.Start([this] {
                Run();
                return hr::ok;
            }))
            return hr::threadNotStarted;
        looping_ = true;
        thread_.SetName("ZEL Job");
    }
    active_ = true;
    queued_ = true;
    return hr::ok;
}

// It returns at once; the run's end is heard of through its status.
HRESULT Job::Stop() {
    const wm::Hold hold(lock_);
    missed_ = false;
    if (active_)
        stop_.Set();
    return hr::ok;
}

HRESULT Job::GetEnabled(bool* enabled) {
    if (enabled == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    *enabled = working_.enabled;
    return hr::ok;
}

HRESULT Job::SetEnabled(bool enabled) {
    const wm::Hold hold(lock_);
    working_.enabled = enabled;
    return hr::ok;
}

HRESULT Job::GetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                             ZEL::JobTriggerValue* out) {
    if (out == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    if (trigger >= working_.triggers.size())
        return hr::notFound;
    *out = working_.triggers[trigger].Get(value);
    return hr::ok;
}

HRESULT Job::SetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                             const ZEL::JobTriggerValue& in) {
    return Guarded([&] {
        const wm::Hold hold(lock_);
        if (trigger >= working_.triggers.size())
            return hr::notFound;
        working_.triggers[trigger].Set(value, in);
        return hr::ok;
    });
}

// The copy is made first, so that want of memory leaves the stored definition as it was.
HRESULT Job::Save() {
    return Guarded([&] {
        {
            const wm::Hold hold(lock_);
            Definition saved = working_;
            stored_ = std::move(saved);
            ScheduleLocked(stored_.triggers.front(), NextRun::first);
        }
        listener_.OnScheduleChanged();
        return hr::ok;
    });
}

// Only the time of the next run is moved: neither definition changes. The stored window holds for
// the moved run as well.
HRESULT Job::Reschedule(std::uint32_t periodSeconds, std::uint32_t delaySeconds,
                        std::uint32_t mode) {
    if (mode != ZEL::jobRescheduleBoth || periodSeconds == 0)
        return hr::invalidArgument;
    return Guarded([&] {
        Trigger moved;
        moved.Set(jobTrigger::kind, {{jobTrigger::periodic, 0, 0}});
        moved.Set(jobTrigger::period, {{periodSeconds, 0, 0}});
        moved.Set(jobTrigger::delay, {{delaySeconds, 0, 0}});
        {
            const wm::Hold hold(lock_);
            for (const std::uint32_t value : {jobTrigger::windowFrom, jobTrigger::windowTo})
                moved.Set(value, stored_.triggers.front().Get(value));
            ScheduleLocked(moved, NextRun::first);
        }
        listener_.OnScheduleChanged();
        return hr::ok;
    });
}

void Job::SetFunction(const wchar_t* name, const Function& function) {
    const wm::Hold hold(lock_);
    if (name != nullptr)
        name_ = name;
    function_ = function;
}

Definition Job::Stored() const {
    const wm::Hold hold(lock_);
    return stored_;
}

// A due time is worked out from the time of the day once and then kept in ticks, which nobody can
// set.
void Job::ScheduleLocked(const Trigger& trigger, NextRun which) {
    dueTickMs_.reset();
    if (!stored_.enabled)
        return;
    const auto delay = DelayToNextRunMs(trigger, wm::Clock().UtcNow(), which);
    if (delay)
        dueTickMs_ = wm::Clock().TickCount64() + *delay;
}

// The next time counts from now and not from when the run was due: after a sleep of the system,
// runs that were slept through are not made one after another. A start that fails for want of a
// thread is not repeated before that time either.
std::optional<std::uint64_t> Job::RunWhenDue(std::uint64_t tickMs) {
    const wm::Hold hold(lock_);
    if (dueTickMs_ && *dueTickMs_ <= tickMs) {
        const HRESULT result = StartLocked();
        missed_ = result == ZEL::jobAlreadyRunning &&
                  stored_.triggers.front().Number(jobTrigger::makeUp) != 0;
        ScheduleLocked(stored_.triggers.front(), NextRun::later);
    }
    return dueTickMs_;
}

void Job::MakeUpLocked() {
    if (!missed_)
        return;
    missed_ = false;
    ZEL::IgnoreResult(StartLocked(), "the thread that would be started is the one that asks");
}

// The run is over however it ends, or nobody could ever start the job again.
class Job::RunEnd {
public:
    explicit RunEnd(Job& job) : job_(job) {}
    ~RunEnd() {
        const wm::Hold hold(job_.lock_);
        job_.status_ = status;
        job_.active_ = false;
    }
    RunEnd(const RunEnd&) = delete;
    RunEnd& operator=(const RunEnd&) = delete;

    std::int32_t status = ZEL::jobStatus::failed;

private:
    Job& job_;
};

// The status is told outside of RunOnce, after RunEnd has made the job free for its next run.
void Job::Run() {
    for (;;) {
        const HRESULT result = Guarded([this] {
            const std::int32_t end = RunOnce();
            listener_.OnStatus(id_, end);
            return hr::ok;
        });
        if (Failed(result))
            wm::Trace(wm::message::jobRunEndedEarly, result);
        const wm::Hold hold(lock_);
        MakeUpLocked();
        looping_ = active_;
        if (!looping_)
            return;
    }
}

// The function is copied, so that RegisterJob can give another one meanwhile.
std::int32_t Job::RunOnce() {
    RunEnd end(*this);
    Function function;
    {
        const wm::Hold hold(lock_);
        function = function_;
        status_ = ZEL::jobStatus::running;
        queued_ = false;
    }
    listener_.OnStatus(id_, ZEL::jobStatus::running);
    HRESULT result = hr::ok;
    try {
        if (function.run != nullptr)
            result = function.run(function.context, stop_.Handle());
    } catch (...) {
        result = hr::unexpected;
    }
    if (Succeeded(result))
        end.status = ZEL::jobStatus::ended;
    return end.status;
}

}  // namespace wmjobmgr
