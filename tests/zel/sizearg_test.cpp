#include "sizearg.h"

#include <gtest/gtest.h>

namespace zel {
namespace {

TEST(SizeArgument, WholeNumbersWithAUnit) {
    const std::pair<const char*, std::uint32_t> sizes[] = {
        {"500m", 500},
        {"1MiB", 1},
        {"2gib", 2048},
        {"1T", 1048576},
        {"0", 0},
        {"4095T", 4293918720},
        {"4294967295M", 4294967295},
    };
    for (const auto& [text, expected] : sizes) {
        std::uint32_t megabytes = 0;
        EXPECT_TRUE(ParseMegabytes(text, &megabytes)) << text;
        EXPECT_EQ(megabytes, expected) << text;
    }
    for (const char* text : {"4294967296M", "4096T", "99999999999999999999M", "", "M", "5", "-5M",
                             " 5M", "5 M", "5K", "5MB", "1.5G"}) {
        std::uint32_t megabytes = 0;
        EXPECT_FALSE(ParseMegabytes(text, &megabytes)) << text;
    }
}

}  // namespace
}  // namespace zel
