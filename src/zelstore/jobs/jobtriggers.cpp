#include "zelstore/jobs/jobtriggers.h"

// A trigger's values are written one by one, and the manager takes them over together, with Save.
// So all are compared first: a schedule that is set again as it stands must not make the manager
// count its time anew, or a job with a long period would never fall due.

namespace ZEL {

namespace {

constexpr std::uint32_t firstTrigger = 0;

}  // namespace

HRESULT ChangeTrigger(IJob& job, std::span<const TriggerChange> values, bool* changed) {
    *changed = false;
    for (const TriggerChange& change : values) {
        JobTriggerValue present;
        const HRESULT result = job.GetTriggerValue(firstTrigger, change.value, &present);
        if (Failed(result))
            return result;
        *changed = *changed || !(present == change.wanted);
    }
    if (!*changed)
        return hr::ok;
    for (const TriggerChange& change : values) {
        const HRESULT result = job.SetTriggerValue(firstTrigger, change.value, change.wanted);
        if (Failed(result))
            return result;
    }
    return job.Save();
}

HRESULT ReadPeriodicTrigger(IJobDefinition& definition, PeriodicTrigger* out) {
    JobTriggerValue kind, period, delay, makeUp;
    HRESULT result = definition.GetTriggerValue(firstTrigger, jobTrigger::kind, &kind);
    if (Failed(result))
        return result;
    if (kind.part[0] != jobTrigger::periodic)
        return hr::nothingToDo;
    const std::pair<std::uint32_t, JobTriggerValue*> rest[] = {
        {jobTrigger::period, &period}, {jobTrigger::delay, &delay}, {jobTrigger::makeUp, &makeUp}};
    for (const auto& [value, place] : rest) {
        result = definition.GetTriggerValue(firstTrigger, value, place);
        if (Failed(result))
            return result;
    }
    *out = {period.part[0], delay.part[0], makeUp.part[0] != 0};
    return hr::ok;
}

}  // namespace ZEL
