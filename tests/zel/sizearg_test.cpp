#include "sizearg.h"

#include <gtest/gtest.h>

namespace zel {
namespace {

TEST(SizeArgument, WholeNumbersWithAUnit) {
    const struct {
        const char* text;
        bool ok;
        std::uint32_t megabytes;
    } rows[] = {
        {"500M", true, 500},
        {"500m", true, 500},
        {"1MiB", true, 1},
        {"2G", true, 2048},
        {"2gib", true, 2048},
        {"1T", true, 1048576},
        {"0", true, 0},
        {"0M", true, 0},
        {"4294967295M", true, 4294967295},
        {"4294967296M", false, 0},
        {"4095T", true, 4293918720},
        {"4096T", false, 0},
        {"99999999999999999999M", false, 0},
        {"", false, 0},
        {"M", false, 0},
        {"5", false, 0},
        {"-5M", false, 0},
        {" 5M", false, 0},
        {"5 M", false, 0},
        {"5K", false, 0},
        {"5MB", false, 0},
        {"1.5G", false, 0},
    };
    for (const auto& row : rows) {
        std::uint32_t megabytes = 0;
        EXPECT_EQ(ParseMegabytes(row.text, &megabytes), row.ok) << row.text;
        EXPECT_EQ(megabytes, row.megabytes) << row.text;
    }
}

}  // namespace
}  // namespace zel
