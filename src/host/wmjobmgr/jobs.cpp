#include "jobs.h"

#include <algorithm>

#include "guarded.h"

// The manager's thread. Each time around it tells the changes of status that have gathered, starts
// the jobs that are due and sleeps until the next one falls due. Changes are put in a queue rather
// than told where they happen, so that a callback hears them in their order and on one thread, and
// a job's thread is not held up by the host. A change that comes between the telling and the sleep
// has set the event by then, so the sleep ends at once.
//
// Where no thread can be made, a change is told by the thread that made it: a store that waits for
// its job to end must hear of the end in any case. Nothing falls due then until some later change
// finds a thread.
//
// The manager's lock and those of jobs are never held together. The jobs to look at are copied
// under the one, and each is then asked under its own; so a job may be made while others are looked
// at.

namespace wmjobmgr {

using ZEL::CountedPtr;
using ZEL::GUID;
using ZEL::HRESULT;
namespace hr = ZEL::hr;

namespace {

struct KnownJob {
    GUID id;
    const wchar_t* name;
};
// Other programs ask for these by identifier or by name, before a host has told what they do.
constexpr KnownJob knownJobs[] = {
    {ZEL::storeJobId, L"ZEL\\FDRStoreJob"},
    {ZEL::MakeGuid("6B0F6E0B-6E0A-4C54-9B0E-3F2B7C1D5A01"), ZEL::retentionJobName},
    {ZEL::MakeGuid("6B0F6E0B-6E0A-4C54-9B0E-3F2B7C1D5A02"), ZEL::submissionJobName},
};

// The thread's sleep is not told of time that the system slept through. Due times count it, so the
// clock is looked at once a minute.
constexpr std::uint64_t longestSleepMs = 60000;
constexpr std::uint64_t retryMs = 1000;

}  // namespace

Jobs& Jobs::Instance() {
    static wm::NeverDestroyed<Jobs> jobs;
    return *jobs;
}

Jobs::Jobs() {
    wake_.Create(wm::EventReset::automatic);
    for (const KnownJob& known : knownJobs)
        FindOrMake(known.id, known.name);
}

CountedPtr<Job> Jobs::Find(const GUID& id) {
    const wm::Hold hold(lock_);
    const auto found = jobs_.find(id);
    return found != jobs_.end() ? found->second : nullptr;
}

// Made ahead of the lock: making a job takes memory and an event. One that turns out to be known is
// dropped again.
CountedPtr<Job> Jobs::FindOrMake(const GUID& id, const wchar_t* name) {
    CountedPtr<Job> fresh = Job::Create(id, name != nullptr ? name : L"", *this);
    if (!fresh)
        return nullptr;
    const wm::Hold hold(lock_);
    return jobs_.try_emplace(id, std::move(fresh)).first->second;
}

std::vector<CountedPtr<Job>> Jobs::All() {
    const wm::Hold hold(lock_);
    std::vector<CountedPtr<Job>> all;
    for (const auto& [id, job] : jobs_)
        all.push_back(job);
    return all;
}

// The former one is released after the lock: its destructor is the host's.
void Jobs::SetCallback(wmJobMgr::IStatusCallback* callback) {
    CountedPtr<wmJobMgr::IStatusCallback> former(callback);
    const wm::Hold hold(lock_);
    std::swap(callback_, former);
}

void Jobs::OnStatus(const GUID& id, std::int32_t status) {
    try {
        const wm::Hold hold(lock_);
        if (!callback_)
            return;
        changes_.push_back({id, status});
    } catch (...) {
        wm::Trace(wm::message::jobStatusNotTold, hr::outOfMemory);
        return;
    }
    if (EnsureThread())
        wake_.Set();
    else
        TellChanges();
}

void Jobs::OnScheduleChanged() {
    if (EnsureThread())
        wake_.Set();
}

bool Jobs::EnsureThread() {
    const wm::Hold hold(lock_);
    if (thread_.IsRunning())
        return true;
    if (!thread_.Start([this] { return ThreadMain(); })) {
        wm::Trace(wm::message::jobThreadNotStarted, hr::threadNotStarted);
        return false;
    }
    thread_.SetName("ZEL Job Manager");
    return true;
}

HRESULT Jobs::ThreadMain() {
    const ZEL::HANDLE wake = wake_.Handle();
    for (;;) {
        TellChanges();
        if (wm::WaitForAny(1, &wake, RunDueJobs()) == wm::waitFailed)
            return hr::fail;
    }
}

void Jobs::TellChanges() {
    for (;;) {
        Change change;
        {
            const wm::Hold hold(lock_);
            if (changes_.empty())
                return;
            change = changes_.front();
            changes_.pop_front();
        }
        Tell(change);
    }
}

namespace {

class Status final : public ZEL::IJobStatus {
public:
    Status(const GUID& id, std::int32_t code) : id_(id), code_(code) {}
    bool GetJobId(GUID* id) override {
        *id = id_;
        return true;
    }
    bool GetStatusCode(std::int32_t* code) override {
        *code = code_;
        return true;
    }

private:
    const GUID id_;
    const std::int32_t code_;
};

}  // namespace

void Jobs::Tell(const Change& change) {
    CountedPtr<wmJobMgr::IStatusCallback> callback;
    {
        const wm::Hold hold(lock_);
        callback = callback_;
    }
    if (!callback)
        return;
    Status status(change.id, change.status);
    try {
        if (Succeeded(callback->OnStatusChanged(&status)))
            return;
    } catch (...) {  // a host's fault must not end the telling of others
    }
    wm::Trace(wm::message::jobStatusNotTaken);
}

// Gives the milliseconds to the next run that falls due.
std::uint32_t Jobs::RunDueJobs() {
    const std::uint64_t nowMs = wm::Clock().TickCount64();
    std::uint64_t sleepMs = longestSleepMs;
    const HRESULT result = Guarded([&] {
        for (const CountedPtr<Job>& job : All())
            if (const auto dueMs = job->RunWhenDue(nowMs))
                sleepMs = std::min(sleepMs, *dueMs > nowMs ? *dueMs - nowMs : 0);
        return hr::ok;
    });
    // Want of memory passes; without this thread no job would ever fall due again.
    return static_cast<std::uint32_t>(Failed(result) ? retryMs : sleepMs);
}

}  // namespace wmjobmgr
