#include "common/utctime.h"

#include <cstdio>

// The calendar is the standard library's, not the C library's: that one reads the environment,
// takes a lock and differs between systems in the years that it knows.

namespace wm {

SystemTime ToSystemTime(std::chrono::sys_time<std::chrono::milliseconds> point) noexcept {
    using namespace std::chrono;
    const auto day = floor<days>(point);
    const year_month_day date(day);
    const hh_mm_ss time(point - day);
    SystemTime result;
    result.year = static_cast<std::uint16_t>(static_cast<int>(date.year()));
    result.month = static_cast<std::uint16_t>(static_cast<unsigned>(date.month()));
    result.day = static_cast<std::uint16_t>(static_cast<unsigned>(date.day()));
    result.dayOfWeek = static_cast<std::uint16_t>(weekday(day).c_encoding());
    result.hour = static_cast<std::uint16_t>(time.hours().count());
    result.minute = static_cast<std::uint16_t>(time.minutes().count());
    result.second = static_cast<std::uint16_t>(time.seconds().count());
    result.milliseconds = static_cast<std::uint16_t>(time.subseconds().count());
    return result;
}

std::string FormatUtc(const SystemTime& time) {
    char text[64];
    const int length =
        std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", time.year,
                      time.month, time.day, time.hour, time.minute, time.second, time.milliseconds);
    return {text, static_cast<std::size_t>(length)};
}

}  // namespace wm
