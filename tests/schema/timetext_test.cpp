#include "zelstore/schema/timetext.h"

#include <gtest/gtest.h>

namespace ZEL::Schema {
namespace {

TEST(TimeText, ParsesTwoLengthsByFormAlone) {
    const std::pair<const char*, HRESULT> rows[] = {
        {"2019-05-01T12:30:45Z", hr::ok},
        {"2019-05-01 12:30:45.123Z", hr::ok},
        {"2019-19-39|29:59:59Z", hr::ok},
        {"", hr::invalidArgument},
        {"2019-05-01T12:30Z", hr::timeTextLength},
        {"2019-05-01T12:30:45.1234Z", hr::timeTextLength},
        {"2019-05-01T12:30:45.12Z", hr::invalidData},
        {"2019-05-01t12:30:45Z", hr::invalidData},
        {"2019-05-01T12:30:45z", hr::invalidData},
        {"2019-05-01T12:30:60Z", hr::invalidData},
    };
    for (const auto& [text, result] : rows) {
        wm::SystemTime time;
        EXPECT_EQ(ParseTimestamp(text, &time), result) << text;
    }
}

TEST(TimeText, ShiftsByMilliseconds) {
    const char* const none = "0000-00-00T00:00:00.000Z";
    const struct {
        const char* text;
        std::int32_t shift;
        const char* shifted;
    } rows[] = {
        {"2019-05-01 12:30:45Z", 0, "2019-05-01T12:30:45.000Z"},
        {"2019-05-01T00:00:00.000Z", -1, "2019-04-30T23:59:59.999Z"},
        {"2020-02-28T23:59:59.999Z", 1, "2020-02-29T00:00:00.000Z"},
        {"2019-12-31T23:59:59.999Z", 2147483647, "2020-01-25T20:31:23.646Z"},
        {"2019-02-29T00:00:00.000Z", 0, none},
        {"2019-01-01T24:00:00Z", 0, none},
        {"1601-01-01T00:00:00.000Z", -1, none},
        {"1600-12-31T00:00:00.000Z", 0, none},
        {"9999-12-31T23:59:59.999Z", 1, "10000-01-01T00:00:00.000Z"},
    };
    for (const auto& row : rows) {
        Text out;
        EXPECT_EQ(AdjustTimestamp(row.text, row.shift, &out), hr::ok) << row.text;
        EXPECT_EQ(out, row.shifted) << row.text;
    }
    Text out;
    EXPECT_EQ(AdjustTimestamp("x", 1, &out), hr::timeTextLength);
}

}  // namespace
}  // namespace ZEL::Schema
