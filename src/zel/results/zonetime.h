#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zel {

// The times of one zone of the world, as people there read their clocks. Copies share what was
// looked up. For one thread.
class ZoneTime {
public:
    using Point = std::chrono::sys_time<std::chrono::milliseconds>;

    // UTC, whose times stay as they stand.
    ZoneTime();
    // "Europe/Berlin", "UTC", or "local" for what TZ or else the system says. None, with words in
    // `problem`, for a name that the system's table does not hold.
    static std::optional<ZoneTime> Find(const std::string& name, std::string* problem);

    // "2026-11-12T10:00:00.000Z" as "2026-11-12T11:00:00.000+01:00"; what is no such time as it is.
    std::string Shown(std::string_view utc) const;
    // What the clock there shows at a moment, as if it were UTC.
    Point ClockAt(Point moment) const;
    // The first moment at which the clock there shows that. Where it jumps over it, the moment of
    // the jump.
    Point MomentOf(Point clock) const;
    bool IsUtc() const noexcept { return zone_ == nullptr; }

private:
    struct Zone;
    std::shared_ptr<Zone> zone_;  // null: UTC
};

}  // namespace zel
