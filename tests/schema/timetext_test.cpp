#include "zelstore/schema/timetext.h"

#include <gtest/gtest.h>

namespace ZEL::Schema {
namespace {

TEST(TimeText, IsCheckedByFormAloneAndShifted) {
    const char* const none = "0000-00-00T00:00:00.000Z";
    const struct {
        const char* text;
        std::int32_t shift;
        HRESULT result;
        const char* shifted;
    } rows[] = {
        {"2019-05-01 12:30:45Z", 0, hr::ok, "2019-05-01T12:30:45.000Z"},
        {"2019-05-01|00:00:00.000Z", -1, hr::ok, "2019-04-30T23:59:59.999Z"},
        {"2020-02-28T23:59:59.999Z", 1, hr::ok, "2020-02-29T00:00:00.000Z"},
        {"2019-12-31T23:59:59.999Z", 2147483647, hr::ok, "2020-01-25T20:31:23.646Z"},
        {"9999-12-31T23:59:59.999Z", 1, hr::ok, "10000-01-01T00:00:00.000Z"},
        {"2019-02-29T00:00:00.000Z", 0, hr::ok, none},
        {"2019-19-39T29:59:59Z", 0, hr::ok, none},
        {"1601-01-01T00:00:00.000Z", -1, hr::ok, none},
        {"1600-12-31T00:00:00.000Z", 0, hr::ok, none},
        {"", 0, hr::invalidArgument, ""},
        {"2019-05-01T12:30Z", 0, hr::timeTextLength, ""},
        {"2019-05-01T12:30:45.1234Z", 0, hr::timeTextLength, ""},
        {"2019-05-01T12:30:45.12Z", 0, hr::invalidData, ""},
        {"2019-05-01T12:30:45.000\u00e9", 0, hr::invalidData, ""},
        {"\u20ac2019-05-01T12:30Z", 0, hr::timeTextLength, ""},
        {"2019-05-01t12:30:45Z", 0, hr::invalidData, ""},
        {"2019-05-01T12:30:45z", 0, hr::invalidData, ""},
        {"2019-05-01T12:30:60Z", 0, hr::invalidData, ""},
    };
    for (const auto& row : rows) {
        Text out;
        EXPECT_EQ(AdjustTimestamp(row.text, row.shift, &out), row.result) << row.text;
        EXPECT_EQ(out, row.shifted) << row.text;
    }
}

}  // namespace
}  // namespace ZEL::Schema
