#pragma once

#include <cstdint>

#include "common/result.h"

namespace ZEL {

// The two numbers that a host sets. Nothing checks them: a stopThreshold of 0 never stops anybody.
struct MonitorThresholds {
    std::uint32_t stopThreshold = 2500;   // megabytes of 1,000,000 bytes
    std::uint32_t resumePercentage = 10;  // of stopThreshold, above it

    bool operator==(const MonitorThresholds&) const = default;
};

// Where to resume, in megabytes. Reckoned with single precision and cut off, which for large
// thresholds differs from the exact value.
std::uint32_t ResumeThreshold(const MonitorThresholds& thresholds) noexcept;

// What the settings hold; each value that they lack keeps its default. A failure is reported. Asks
// the settings each time.
MonitorThresholds ReadThresholds();

// Writes both values unless both stand there. A failure is reported. One of the two may be written
// by then.
HRESULT WriteThresholds(const MonitorThresholds& thresholds);

}  // namespace ZEL
