#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "common/wmapi.h"

namespace wm {

// UTC, broken down. Fields as in the calendar: month 1 to 12, day 1 to 31.
struct SystemTime {
    std::uint16_t year = 0, month = 0, dayOfWeek = 0, day = 0;
    std::uint16_t hour = 0, minute = 0, second = 0, milliseconds = 0;
};

WMLIB_API SystemTime ToSystemTime(std::chrono::sys_time<std::chrono::milliseconds> point) noexcept;

// The one form that times have everywhere: 2026-11-12T10:00:00.000Z. Text order is time order.
WMLIB_API std::string FormatUtc(const SystemTime& time);

}  // namespace wm
