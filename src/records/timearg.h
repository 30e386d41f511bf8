#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace zel {

// A time as people write it: RFC 3339 (2026-11-12T10:00:00Z, with a fraction or an offset, a blank
// in place of T; without an offset it is UTC, and seconds may be left out), a date, "now", "today",
// "yesterday" (UTC), or a distance back such as -2h (s, m, h, d, w). The result is the store's
// form, UTC with milliseconds.
struct TimeArgument {
    bool ok = false;
    // 24 characters, such as 2026-11-12T10:00:00.000Z, so that the order of texts is that of times.
    // A fraction is cut, not rounded; a distance that leads ahead of the year 1601 ends there.
    std::string text;
    std::string endOfDay;    // of a date, "today" and "yesterday": their last millisecond
    std::string error;       // what is wrong
    std::size_t column = 0;  // where, counted from 0
    // Neither an offset nor a moment from now tells its zone, so that it is only taken as UTC.
    bool isOfAnyZone = false;
};
// `now` is what "now", days by name and distances are reckoned from, in UTC.
TimeArgument ParseTimeArgument(const std::string& argument,
                               std::chrono::sys_time<std::chrono::milliseconds> now);

}  // namespace zel
