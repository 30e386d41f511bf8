#include "zel/results/zonetime.h"

#include <date/tz.h>

#include <cstdio>
#include <cstdlib>

#include "records/eventtime.h"
#include "zel/terminal/textfit.h"

// The system's table of zones holds for each of them from when to when which offset held. The span
// of the last time is kept, since an answer's times mostly lie in one.

namespace zel {

using std::chrono::milliseconds;

struct ZoneTime::Zone {
    const date::time_zone* place = nullptr;
    date::sys_info span;

    milliseconds OffsetAt(Point moment) {
        const auto second = std::chrono::floor<std::chrono::seconds>(moment);
        if (second < span.begin || second >= span.end)
            span = place->get_info(second);
        return span.offset;
    }
};

namespace {

// A zone named by TZ counts, as for other programs; other forms of it do not.
const date::time_zone* LocalZone() {
    const char* const given = std::getenv("TZ");
    std::string name = given != nullptr ? given : "";
    if (name.starts_with(':'))
        name.erase(0, 1);
    return name.empty() ? date::current_zone() : date::locate_zone(name);
}

}  // namespace

ZoneTime::ZoneTime() = default;

std::optional<ZoneTime> ZoneTime::Find(const std::string& name, std::string* problem) {
    ZoneTime time;
    if (name == "UTC")
        return time;
    try {
        time.zone_ = std::make_shared<Zone>();
        time.zone_->place = name == "local" ? LocalZone() : date::locate_zone(name);
        time.zone_->span = time.zone_->place->get_info(date::sys_seconds());
        return time;
    } catch (const std::exception&) {
        *problem = "the system knows no time zone \"" + Escaped(name) +
                   "\"; such as Europe/Berlin, UTC or local is expected";
        return std::nullopt;
    }
}

ZoneTime::Point ZoneTime::ClockAt(Point moment) const {
    return zone_ ? moment + zone_->OffsetAt(moment) : moment;
}

ZoneTime::Point ZoneTime::MomentOf(Point clock) const {
    if (!zone_)
        return clock;
    const auto second = std::chrono::floor<std::chrono::seconds>(clock);
    const date::local_info info =
        zone_->place->get_info(date::local_seconds(second.time_since_epoch()));
    if (info.result == date::local_info::nonexistent)
        return info.first.end;
    return clock - info.first.offset;
}

std::string ZoneTime::Shown(std::string_view utc) const {
    const auto parsed = zone_ ? MillisecondsIn(utc) : std::nullopt;
    if (!parsed)
        return std::string(utc);
    const Point moment{milliseconds(*parsed)};
    const milliseconds offset = zone_->OffsetAt(moment);
    const auto clock = EventTimeOfMilliseconds((moment + offset).time_since_epoch().count());
    if (!clock)
        return std::string(utc);
    const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(offset).count();
    // What is not whole minutes, of the time before there were zones, has no form.
    if (std::chrono::minutes(minutes) != offset)
        return std::string(utc);
    char text[16];
    std::snprintf(text, sizeof(text), "%c%02d:%02d", minutes < 0 ? '-' : '+',
                  static_cast<int>(std::abs(minutes) / 60),
                  static_cast<int>(std::abs(minutes) % 60));
    return clock->text.substr(0, clock->text.size() - 1) + text;
}

}  // namespace zel
