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

// Milliseconds from `now` to a trigger's next run; nothing for one that starts no runs. `isFirst`
// says that the trigger has just been set. A clock that is set in between moves a daily run.
std::optional<std::uint64_t> DelayToNextRunMs(const Trigger& trigger, const wm::SystemTime& now,
                                              bool isFirst);

}  // namespace wmjobmgr
