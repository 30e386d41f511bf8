#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/itobbaseimpl.h"
#include "common/jobmanager.h"
#include "common/lock.h"
#include "common/workerthread.h"
#include "schedule.h"

namespace wmjobmgr {

// What Save stores of a job. A copy is a whole schedule of its own. A job has one trigger; the list
// is there since the interface numbers them.
struct Definition {
    bool enabled = true;
    std::vector<Trigger> triggers{1};
};

// One job: a function of the host that runs on a thread of its own, one run at a time. Its changes
// of status and of schedule are told to the manager, under no lock.
//
// Two definitions are kept: the working one, which the interface reads and changes, and the stored
// one, by which runs fall due. Save copies the first to the second.
//
// May be used by any thread. The job lives as long as somebody holds it, and the manager holds
// every job until the process ends, so a run never meets the end of its job.
class Job final : public ZEL::TobObject<ZEL::IJob, ZEL::IJobInfo> {
public:
    // The manager's ears. They outlive the job. Both are called without the job's lock, on whatever
    // thread made the change, and may call back into the job.
    class IListener {
    public:
        // `status` is what the job had when it changed; it may have gone on since.
        virtual void OnStatus(const ZEL::GUID& id, std::int32_t status) = 0;
        // Another time may now be the next one at which some job falls due.
        virtual void OnScheduleChanged() = 0;

    protected:
        ~IListener() = default;
    };
    // The host keeps `context` alive until the process ends.
    struct Function {
        ZEL::IJobRegistry::JobFunction run = nullptr;
        void* context = nullptr;
    };

    // Null, or an exception, when memory runs out.
    static ZEL::CountedPtr<Job> Create(const ZEL::GUID& id, std::wstring name, IListener& listener);

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override;

    ZEL::HRESULT GetId(ZEL::GUID* id) override;
    ZEL::HRESULT GetStatus(std::int32_t* status) override;
    ZEL::HRESULT Start(std::uint32_t flags) override;
    ZEL::HRESULT Stop() override;
    ZEL::HRESULT GetEnabled(bool* enabled) override;
    ZEL::HRESULT SetEnabled(bool enabled) override;
    ZEL::HRESULT Save() override;
    ZEL::HRESULT GetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                                 ZEL::JobTriggerValue* out) override;
    ZEL::HRESULT SetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                                 const ZEL::JobTriggerValue& in) override;
    ZEL::HRESULT GetRunInformation(bool* present, std::uint32_t* result) override;
    ZEL::HRESULT Reschedule(std::uint32_t periodSeconds, std::uint32_t delaySeconds,
                            std::uint32_t mode) override;
    ZEL::HRESULT GetName(ZEL::IStringValue** name) override;

    // For the next run to begin. A null `name` keeps the present one.
    void SetFunction(const wchar_t* name, const Function& function);
    // A copy, at one moment.
    Definition Stored() const;
    // Starts the job when a run is due at `tickMs`. The time of the next one, if there is one. A
    // run that falls due while another goes on is not started twice: it is made up for after that
    // one, when the trigger says so, and skipped otherwise.
    std::optional<std::uint64_t> RunWhenDue(std::uint64_t tickMs);

private:
    Job(const ZEL::GUID& id, std::wstring name, IListener& listener)
        : id_(id), listener_(listener), name_(std::move(name)) {}
    class RunEnd;
    // The thread's body: runs for as long as new ones were asked for.
    void Run();
    // The status that the run ended with.
    std::int32_t RunOnce();
    // jobAlreadyRunning for a run that was asked for, too, though it has not begun.
    ZEL::HRESULT StartLocked() REQUIRES(lock_);
    // Works out when the job falls due next, by `trigger`; never when it is not enabled.
    void ScheduleLocked(const Trigger& trigger, NextRun which) REQUIRES(lock_);
    // On the job's own thread, between two runs.
    void MakeUpLocked() REQUIRES(lock_);

    const ZEL::GUID id_;
    IListener& listener_;
    mutable wm::Lock lock_{wm::LockRank::job};
    std::wstring name_ GUARDED_BY(lock_);
    Function function_ GUARDED_BY(lock_);
    Definition working_ GUARDED_BY(lock_);
    Definition stored_ GUARDED_BY(lock_);
    // In IClock::TickCount64, so that setting the clock moves nothing once it is worked out.
    std::optional<std::uint64_t> dueTickMs_ GUARDED_BY(lock_);
    bool missed_ GUARDED_BY(lock_) = false;  // a run fell due during another
    std::int32_t status_ GUARDED_BY(lock_) = ZEL::jobStatus::noRun;
    bool active_ GUARDED_BY(lock_) = false;   // a run was asked for and has not ended
    bool queued_ GUARDED_BY(lock_) = false;   // and it has not begun
    bool looping_ GUARDED_BY(lock_) = false;  // the thread will see a new run without being started
    // Manual: a run may look at it as often as it likes. Reset by the start of the next run.
    wm::EventObject stop_;
    wm::WorkerThread thread_;
};

}  // namespace wmjobmgr
