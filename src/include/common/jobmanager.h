#pragma once

#include <cstdint>

#include "common/eventobject.h"
#include "common/istringvalue.h"

namespace ZEL {

// A status change of a job, as told to a status callback; valid during the call.
class IJobStatus {
public:
    // Both are false when the status does not tell; `*id` and `*code` are then unspecified.
    virtual bool GetJobId(GUID* id) = 0;
    virtual bool GetStatusCode(std::int32_t* code) = 0;

protected:
    ~IJobStatus() = default;
};

// Values of a job's status. Others may occur and count as active.
namespace jobStatus {
// A run goes from starting to running to one of the two ends; the last end stays the job's status
// until the next run. A manager of another make may leave steps out, so readers ask whether a
// status is an end, not which step comes next.
inline constexpr std::int32_t noRun = 0;
inline constexpr std::int32_t starting = 1;
inline constexpr std::int32_t running = 2;
inline constexpr std::int32_t ended = 7;
inline constexpr std::int32_t failed = 8;
}  // namespace jobStatus

}  // namespace ZEL

namespace wmJobMgr {

// Hears of every job's changes, on a thread of the job manager. Called in the order of the changes,
// one at a time (only where the system gives the manager no thread does each job call from its
// own), and under no lock of the manager: a callback may ask the manager and start and stop jobs.
// As long as it runs no other job falls due, so it should hand work on.
class IStatusCallback : public ZEL::ITobBase {
public:
    // A failure is traced and has no other effect.
    virtual ZEL::HRESULT OnStatusChanged(ZEL::IJobStatus* status) = 0;
    // Never called; it keeps its place in the table of operations.
    virtual ZEL::HRESULT Reserved() = 0;

protected:
    ~IStatusCallback() = default;
};

inline constexpr ZEL::GUID iidStatusCallback =
    ZEL::MakeGuid("EB9FCBE0-DD4A-49B1-81A9-A0C13E34667E");

}  // namespace wmJobMgr

namespace ZEL {

// One value of a trigger. Most have one part; a time of day has three. Each part is a number
// without a sign; parts that a value does not use are 0.
struct JobTriggerValue {
    std::uint32_t part[3] = {};
    friend bool operator==(const JobTriggerValue&, const JobTriggerValue&) = default;
};

// Numbers of a trigger's values. Those of no use to a trigger's kind are kept and do nothing.
// Times of the day are UTC throughout: a schedule must not jump with a machine's summer time.
namespace jobTrigger {
inline constexpr std::uint32_t kind = 0;
inline constexpr std::uint32_t period = 1;       // of a periodic one: seconds from run to run
inline constexpr std::uint32_t delay = 2;        // seconds to the first run
inline constexpr std::uint32_t makeUp = 3;       // not 0: a run that is missed is made up for
inline constexpr std::uint32_t timeOfDay = 6;    // of a daily one: hour, minute, second, UTC
inline constexpr std::uint32_t windowFrom = 23;  // seconds of the day, UTC: runs that fall due
inline constexpr std::uint32_t windowTo = 24;    // outside wait for its begin; equal: no window

// Kinds. A trigger of no kind starts no runs; its job runs when it is asked to.
inline constexpr std::uint32_t none = 0;
inline constexpr std::uint32_t periodic = 1;
inline constexpr std::uint32_t daily = 2;
}  // namespace jobTrigger

// A job as its manager has it stored: what was made last by Save before it was asked for. A copy:
// later calls of Save do not change it. For any thread.
class IJobDefinition : public ITobBase {
public:
    virtual HRESULT GetEnabled(bool* enabled) = 0;
    // As IJob::GetTriggerValue.
    virtual HRESULT GetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                                    JobTriggerValue* out) = 0;

protected:
    ~IJobDefinition() = default;
};

// One job of the manager. May be used by any thread. Changes to its flag and its triggers are seen
// by who asks this object; they take effect, and are stored, with Save. A null output gives
// 0x80070057. An operation that fails changes nothing. The working copy of flag and triggers is the
// job's own: two users who change it before either saves see each other's changes.
class IJob : public ITobBase {
public:
    virtual HRESULT GetId(GUID* id) = 0;
    // A value of jobStatus.
    virtual HRESULT GetStatus(std::int32_t* status) = 0;
    // Asks for a run and does not wait. 0x8004131F when it runs already. `flags` is 0.
    virtual HRESULT Start(std::uint32_t flags) = 0;
    // Asks a run to end and does not wait; without a run it does nothing.
    virtual HRESULT Stop() = 0;
    // A job that is not enabled starts no runs by itself.
    virtual HRESULT GetEnabled(bool* enabled) = 0;
    virtual HRESULT SetEnabled(bool enabled) = 0;
    // wmJobMgr keeps what is stored until the process ends. It also counts the schedule anew from
    // now, which drops a moved run. A run in progress goes on.
    virtual HRESULT Save() = 0;
    // Triggers count from 0; 0x80070490 when there is none of that number. A value that was never
    // set is 0 in all parts.
    virtual HRESULT GetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                                    JobTriggerValue* out) = 0;
    virtual HRESULT SetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                                    const JobTriggerValue& in) = 0;
    // Whether a run is asked for that has not begun; `*result` is then not 0.
    virtual HRESULT GetRunInformation(bool* present, std::uint32_t* result) = 0;
    // Moves the next run to where a periodic trigger of these values, set now, would have it. Later
    // ones follow the stored trigger. `mode` is jobRescheduleBoth. 0x80070057 for another mode or a
    // period of 0.
    virtual HRESULT Reschedule(std::uint32_t periodSeconds, std::uint32_t delaySeconds,
                               std::uint32_t mode) = 0;

protected:
    ~IJob() = default;
};
inline constexpr std::uint32_t jobRescheduleBoth = 3;

// What an item of a list of jobs tells of itself. The same object is the job. Ask an item for this
// interface by its identifier.
class IJobInfo : public ITobBase {
public:
    // Names are for finding and showing jobs, such as retentionJobName. They need not be unique;
    // identifiers are.
    virtual HRESULT GetName(IStringValue** name) = 0;

protected:
    ~IJobInfo() = default;
};
inline constexpr GUID iidJobInfo = MakeGuid("587B391C-FE8A-40F7-8A41-564642473593");

// The jobs that there were when it was asked for. Items are not copied: each is the job itself,
// with its present state.
class IJobList : public ITobBase {
public:
    virtual std::size_t Count() = 0;
    // The job at `index`; 0x80070057 past the end.
    virtual HRESULT GetItem(std::size_t index, ITobBase** item) = 0;

protected:
    ~IJobList() = default;
};

// The jobs of this process or machine. May be used by any thread. Outputs come with a new
// reference.
//
// There are no operations that remove a job: who has an IJob can count on it.
class IJobManager : public ITobBase {
public:
    // One callback for all jobs; null removes it. The manager holds a reference. A former callback
    // may still be in a call, or get one that was about to begin, when this returns.
    virtual HRESULT SetStatusCallback(wmJobMgr::IStatusCallback* callback) = 0;
    // 0x80070490 when there is no such job.
    virtual HRESULT GetJob(const GUID& id, IJob** job) = 0;
    virtual HRESULT EnumerateJobs(IJobList** list) = 0;
    virtual HRESULT GetDefinition(const GUID& id, IJobDefinition** definition) = 0;

protected:
    ~IJobManager() = default;
};

// Where a host tells the in-process manager what its jobs do. The manager offers it beside
// IJobManager.
//
// The manager knows schedules and threads and nothing of work; the host knows the work. A job may
// be scheduled before its function is told, and its runs do nothing until then.
class IJobRegistry : public ITobBase {
public:
    // What a job does. Called on the job's own thread, once for each run; `stop` is an event that
    // is set when the run is asked to end. It and `context` stay in use until the process ends. A
    // run that was asked to end may still finish its work and succeed. A failure becomes
    // jobStatus::failed, and what it throws counts as one.
    using JobFunction = HRESULT (*)(void* context, HANDLE stop);

    // Makes a job, or gives one that is known already a new function; null leaves it with nothing
    // to do. A null `name` keeps the present one. A run in progress keeps the function that it
    // began with. The name is copied.
    virtual HRESULT RegisterJob(const GUID& id, const wchar_t* name, JobFunction run,
                                void* context) = 0;

protected:
    ~IJobRegistry() = default;
};
inline constexpr GUID iidJobRegistry = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B16");

inline constexpr HRESULT jobAlreadyRunning = hr::Code(0x8004131F);

// Both the object and its interface.
inline constexpr GUID iidJobManager = MakeGuid("94BA88EB-B1EC-4031-A960-79F67771AB68");
inline constexpr GUID iidJob = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B15");
inline constexpr GUID iidJobList = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B17");
inline constexpr GUID iidJobDefinition = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B18");

// The jobs that a manager has by itself.
inline constexpr GUID storeJobId = MakeGuid("0DBA0098-010E-4759-BBA5-990F9AC492B9");
inline constexpr const wchar_t* retentionJobName = L"ZEL\\FDRRetentionJob";
inline constexpr const wchar_t* submissionJobName = L"ZEL\\FDRSubmissionJob";

}  // namespace ZEL
