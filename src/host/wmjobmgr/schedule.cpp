#include "schedule.h"

// When a trigger's next run is due, as a distance from now. All is reckoned in milliseconds of a
// day that begins again at midnight, UTC, so that a time of the day and a window that goes past
// midnight need no dates. A run that would fall outside of the window is put off to the window's
// next begin, never brought forward; a window that ends where it begins is none.

namespace wmjobmgr {

namespace {

namespace jobTrigger = ZEL::jobTrigger;

constexpr std::uint64_t dayMs = 86400000;

std::uint64_t MsOfDay(std::uint64_t hour, std::uint64_t minute, std::uint64_t second) {
    return ((hour * 60 + minute) * 60 + second) * 1000;
}

// From one time of the day to the next occurrence of another; a whole day when both are the same.
std::uint64_t MsUntil(std::uint64_t fromMs, std::uint64_t toMs) {
    const std::uint64_t distance = (toMs + dayMs - fromMs) % dayMs;
    return distance != 0 ? distance : dayMs;
}

// What has to be added to a delay for the run to fall into the trigger's window. The begin belongs
// to the window and the end does not. Numbers beyond a day wrap around.
std::uint64_t MsToWindow(const Trigger& trigger, std::uint64_t dueMsOfDay) {
    const std::uint64_t from = trigger.Number(jobTrigger::windowFrom) * 1000ULL % dayMs;
    const std::uint64_t to = trigger.Number(jobTrigger::windowTo) * 1000ULL % dayMs;
    if (from == to)
        return 0;
    const bool isInside =
        from < to ? dueMsOfDay >= from && dueMsOfDay < to : dueMsOfDay >= from || dueMsOfDay < to;
    return isInside ? 0 : MsUntil(dueMsOfDay, from);
}

}  // namespace

ZEL::JobTriggerValue Trigger::Get(std::uint32_t value) const {
    const auto found = values_.find(value);
    return found != values_.end() ? found->second : ZEL::JobTriggerValue();
}

std::optional<std::uint64_t> DelayToNextRunMs(const Trigger& trigger, const wm::SystemTime& now,
                                              NextRun which) {
    const std::uint64_t nowMs = MsOfDay(now.hour, now.minute, now.second) + now.milliseconds;
    std::uint64_t delay = 0;
    switch (trigger.Number(jobTrigger::kind)) {
        case jobTrigger::periodic: {
            const std::uint64_t period = trigger.Number(jobTrigger::period);
            if (period == 0)
                return std::nullopt;
            delay =
                (which == NextRun::first ? trigger.Number(jobTrigger::delay) : period) * 1000ULL;
            break;
        }
        case jobTrigger::daily: {
            const ZEL::JobTriggerValue time = trigger.Get(jobTrigger::timeOfDay);
            delay = MsUntil(nowMs, MsOfDay(time.part[0], time.part[1], time.part[2]) % dayMs);
            break;
        }
        default:
            return std::nullopt;
    }
    return delay + MsToWindow(trigger, (nowMs + delay) % dayMs);
}

}  // namespace wmjobmgr
