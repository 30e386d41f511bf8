#pragma once

#include <cstdint>

#include "common/eventobject.h"
#include "common/istringvalue.h"

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

// One value of a trigger. Most have one part; a time of day has three.
struct JobTriggerValue {
    std::uint32_t part[3] = {};
    friend bool operator==(const JobTriggerValue&, const JobTriggerValue&) = default;
};

// Numbers of a trigger's values. Those of no use to a trigger's kind are kept and do nothing.
namespace jobTrigger {
inline constexpr std::uint32_t kind = 0;
inline constexpr std::uint32_t period = 1;       // of a periodic one: seconds from run to run
inline constexpr std::uint32_t delay = 2;        // seconds to the first run
inline constexpr std::uint32_t makeUp = 3;       // not 0: a run that is missed is made up for
inline constexpr std::uint32_t timeOfDay = 6;    // of a daily one: hour, minute, second, UTC
inline constexpr std::uint32_t windowFrom = 23;  // seconds of the day, UTC: runs that fall due
inline constexpr std::uint32_t windowTo = 24;    // outside wait for its begin; equal: no window

// Kinds.
inline constexpr std::uint32_t none = 0;
inline constexpr std::uint32_t periodic = 1;
inline constexpr std::uint32_t daily = 2;
}  // namespace jobTrigger

// A job as its manager has it stored: what was made last by Save before it was asked for.
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
// 0x80070057.
class IJob : public ITobBase {
public:
    virtual HRESULT GetId(GUID* id) = 0;
    virtual HRESULT GetStatus(std::int32_t* status) = 0;
    // Asks for a run and does not wait. 0x8004131F when it runs already. `flags` is 0.
    virtual HRESULT Start(std::uint32_t flags) = 0;
    // Asks a run to end and does not wait; without a run it does nothing.
    virtual HRESULT Stop() = 0;
    // A job that is not enabled starts no runs by itself.
    virtual HRESULT GetEnabled(bool* enabled) = 0;
    virtual HRESULT SetEnabled(bool enabled) = 0;
    // wmJobMgr keeps what is stored until the process ends.
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

// What an item of a list of jobs tells of itself. The same object is the job.
class IJobInfo : public ITobBase {
public:
    virtual HRESULT GetName(IStringValue** name) = 0;

protected:
    ~IJobInfo() = default;
};
inline constexpr GUID iidJobInfo = MakeGuid("587B391C-FE8A-40F7-8A41-564642473593");

// The jobs that there were when it was asked for.
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
class IJobManager : public ITobBase {
public:
    // One callback for all jobs; null removes it. The manager holds a reference.
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
class IJobRegistry : public ITobBase {
public:
    // What a job does. Called on the job's own thread, once for each run; `stop` is an event that
    // is set when the run is asked to end. It and `context` stay in use until the process ends.
    using JobFunction = HRESULT (*)(void* context, HANDLE stop);

    // Makes a job, or gives one that is known already a new function; null leaves it with nothing
    // to do. A null `name` keeps the present one.
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
