#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zel {

// A time as records have it: UTC, 2026-11-12T10:00:00.000Z, from 1601 on.
struct EventTime {
    std::string text;
    bool isExact = true;  // nothing finer than milliseconds was cut off
};

// "2026-11-12 10:00:00", with T or a blank between, any number of decimals, and Z or an offset such
// as +02:00 behind. A time without a zone is taken as UTC, since most sources mean that. None for
// what has another form or does not exist.
std::optional<EventTime> ParseEventTime(std::string_view text);
// Of the same forms: milliseconds since 1970.
std::optional<std::int64_t> MillisecondsIn(std::string_view text);

// A number of seconds since 1970, perhaps with decimals: "1558211806.254". None outside the years
// 1601 to 9999.
std::optional<EventTime> EventTimeOfSeconds(std::string_view text);
std::optional<EventTime> EventTimeOfMilliseconds(std::int64_t milliseconds);

}  // namespace zel
