#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "common/hostservices.h"

namespace wmjobmgr {

// One trigger: values by number (ZEL::jobTrigger). An absent value is 0.
class Trigger {
public:
    ZEL::JobTriggerValue Get(std::uint32_t value) const;
    void Set(std::uint32_t value, const ZEL::JobTriggerValue& in) { values_[value] = in; }
    std::uint32_t Number(std::uint32_t value) const { return Get(value).part[0]; }

private:
    std::map<std::uint32_t, ZEL::JobTriggerValue> values_;
};

// Whether a trigger has just been set, and its delay counts, or has led to a run before.
enum class NextRun { first, later };

// Milliseconds from `now` to a trigger's next run; nothing for one that starts no runs. A clock
// that is set in between moves a daily run.
std::optional<std::uint64_t> DelayToNextRunMs(const Trigger& trigger, const wm::SystemTime& now,
                                              NextRun which);

}  // namespace wmjobmgr
