#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "common/hostservices.h"

namespace wmjobmgr {

// One trigger: values by number (ZEL::jobTrigger). An absent value is 0.
//
// Whatever number is set is kept and given back, so that a host can store with a trigger what this
// manager does not know. For one thread; a job's lock guards those of the job.
class Trigger {
public:
    ZEL::JobTriggerValue Get(std::uint32_t value) const;
    void Set(std::uint32_t value, const ZEL::JobTriggerValue& in) { values_[value] = in; }
    // The first part, which is the only one of most values.
    std::uint32_t Number(std::uint32_t value) const { return Get(value).part[0]; }

private:
    std::map<std::uint32_t, ZEL::JobTriggerValue> values_;
};

// Whether a trigger has just been set, and its delay counts, or has led to a run before. The delay
// shifts a periodic trigger's first run alone.
enum class NextRun { first, later };

// Milliseconds from `now` to a trigger's next run; nothing for one that starts no runs. A clock
// that is set in between moves a daily run. Only the time of the day of `now` counts, in UTC. The
// result is 0 for a periodic trigger without a delay; a daily one whose time is now runs tomorrow,
// since it has just run or was set too late. Nothing is changed and nothing asked of the system, so
// that tests can ask for any moment.
std::optional<std::uint64_t> DelayToNextRunMs(const Trigger& trigger, const wm::SystemTime& now,
                                              NextRun which);

}  // namespace wmjobmgr
