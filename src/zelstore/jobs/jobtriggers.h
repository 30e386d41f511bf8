#pragma once

#include <span>

#include "common/jobmanager.h"

namespace ZEL {

// A job's schedule is its first trigger. A change that changes nothing is not stored.

// Saving makes the manager count the schedule anew, so needless saving would put off runs for ever.
struct TriggerChange {
    std::uint32_t value;  // a number of jobTrigger
    JobTriggerValue wanted;
};
// Writes and stores the values when one of them differs from what the trigger has. `*changed` tells
// whether one did, also when writing then fails: some of the values may be set by then, and none is
// stored.
HRESULT ChangeTrigger(IJob& job, std::span<const TriggerChange> values, bool* changed);

struct PeriodicTrigger {
    std::uint32_t period = 0;  // seconds, as the next one
    std::uint32_t delay = 0;
    bool makeUp = false;
};
// hr::nothingToDo when the definition's first trigger is of another kind. The definition is what is
// stored, not what the job has in hand. On failure `*out` stays as it was.
HRESULT ReadPeriodicTrigger(IJobDefinition& definition, PeriodicTrigger* out);

}  // namespace ZEL
