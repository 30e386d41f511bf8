#include "textfit.h"

#include <gtest/gtest.h>

namespace zel {
namespace {

TEST(TextFit, EscapesWhatATerminalObeys) {
    EXPECT_EQ(Escaped("a\nb\x1b[31m\x7f\xff\u202e\u0085"), "a\\nb\\x1b[31m\\x7f\\xff\\u202e\\x85");
    EXPECT_EQ(Escaped("C:\\\u00fc\u4e2d"), "C:\\\u00fc\u4e2d");
    EXPECT_EQ(Escaped("\xe4\xb8"), "\\xe4\\xb8");
    EXPECT_EQ(DisplayWidth("a\u0301\u4e2d\n"), 1u + 2 + 2);
}

TEST(TextFit, CutsBetweenCharacters) {
    const struct {
        const char* text;
        std::size_t columns;
        Keep keep;
        const char* fitted;
    } rows[] = {
        {"abcd", 3, Keep::start, "ab\u2026"},
        {"\u00e4\u00f6\u00fc\u00df", 3, Keep::end, "\u2026\u00fc\u00df"},
        {"\u4e2d\u4e2d\u4e2d", 4, Keep::start, "\u4e2d\u2026"},
        {"a\u0301b\u0301c\u0301", 2, Keep::start, "a\u0301\u2026"},
        {"abc", 0, Keep::end, ""},
    };
    for (const auto& row : rows) {
        const std::string fitted = Fit(row.text, row.columns, row.keep);
        EXPECT_EQ(fitted, row.fitted) << row.text;
        EXPECT_LE(DisplayWidth(fitted), row.columns) << row.text;
    }
}

TEST(TextFit, PointsAtColumns) {
    EXPECT_EQ(PointAt("\u00e4\u4e2d\nx", 6), "  \u00e4\u4e2d\\nx\n       ^");
}

}  // namespace
}  // namespace zel
