#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "common/wmapi.h"

namespace wm {

// UTC, broken down. Fields as in the calendar: month 1 to 12, day 1 to 31.
//
// Day of week 0 is Sunday. There are no leap seconds: as the system's own clock, it repeats or
// stretches a second instead. The fields are 16 bits wide on every system.
struct SystemTime {
    std::uint16_t year = 0, month = 0, dayOfWeek = 0, day = 0;
    std::uint16_t hour = 0, minute = 0, second = 0, milliseconds = 0;
    friend bool operator==(const SystemTime&, const SystemTime&) = default;
};

// For times in the years 0 to 9999.
WMLIB_API SystemTime ToSystemTime(std::chrono::sys_time<std::chrono::milliseconds> point) noexcept;

// The one form that times have everywhere: 2026-11-12T10:00:00.000Z. Text order is time order.
// Fields are not checked: those out of their ranges may give a text of another length.
WMLIB_API std::string FormatUtc(const SystemTime& time);

}  // namespace wm
