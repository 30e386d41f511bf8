#include "records/timearg.h"

#include <gtest/gtest.h>

namespace zel {
namespace {

using namespace std::chrono;

const auto now = sys_days(year(2026) / 11 / 12) + hours(10) + minutes(5) + milliseconds(7);

TEST(TimeArgument, UnderstandsWhatPeopleWrite) {
    const std::pair<const char*, const char*> rows[] = {
        {"now", "2026-11-12T10:05:00.007Z"},
        {"today", "2026-11-12T00:00:00.000Z"},
        {"yesterday", "2026-11-11T00:00:00.000Z"},
        {"-90s", "2026-11-12T10:03:30.007Z"},
        {"-1w", "2026-11-05T10:05:00.007Z"},
        {"-1000000000d", "1601-01-01T00:00:00.000Z"},
        {"2020-02-29", "2020-02-29T00:00:00.000Z"},
        {"2020-02-29 01:02:03.5z", "2020-02-29T01:02:03.500Z"},
        {"2020-02-29T01:02:03.123456+02:00", "2020-02-28T23:02:03.123Z"},
        {"2019-12-31T23:59:59-00:30", "2020-01-01T00:29:59.000Z"},
        {"2020-10-19T07:00", "2020-10-19T07:00:00.000Z"},
        {"2020-10-19 07:00:30.1", "2020-10-19T07:00:30.100Z"},
        {"2020-10-19T07:00+02:00", "2020-10-19T05:00:00.000Z"},
    };
    for (const auto& [argument, text] : rows) {
        const TimeArgument time = ParseTimeArgument(argument, now);
        EXPECT_TRUE(time.ok) << argument << ": " << time.error;
        EXPECT_EQ(time.text, text) << argument;
    }
}

TEST(TimeArgument, PointsAtWhatIsWrong) {
    const std::pair<const char*, std::size_t> rows[] = {
        {"", 0},
        {"soon", 0},
        {"2020", 4},
        {"2020-02-30", 0},
        {"1600-01-01", 0},
        {"-h", 1},
        {"-2x", 2},
        {"2020-01-01x", 10},
        {"2020-01-01T25:00:00Z", 13},
        {"2020-01-01T10:", 14},
        {"2020-01-01T10:00.5", 16},
        {"2020-01-01T10:00:00x", 19},
        {"2020-01-01T10:00:00.Z", 20},
        {"-99999999999h", 1},
        {"1601-01-01T00:00:00+00:01", 19},
        {"9999-12-31T23:59:59.999-00:01", 23},
    };
    for (const auto& [argument, column] : rows) {
        const TimeArgument time = ParseTimeArgument(argument, now);
        EXPECT_FALSE(time.ok) << argument;
        EXPECT_EQ(time.column, column) << argument << ": " << time.error;
    }
}

}  // namespace
}  // namespace zel
