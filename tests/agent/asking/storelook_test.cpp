#include "connection/storelook.h"

#include <gtest/gtest.h>

namespace zel {
namespace {

TEST(StoreLookTest, ComesOutOfItsJsonAsItWasOrNotAtAll) {
    StoreLook look;
    look.directory = "/var/lib/\"zel\"";
    look.listing.folders = {{"20260101", {3, 4}, true}, {"20260102999", {0, 0}, false}};
    look.listing.rest = {1, UINT64_MAX};
    look.listing.unreadable = {"a", "b"};
    look.foreign = {"documents"};
    look.writtenUntil = "2026-01-02T03:04:05.006Z";
    look.oldestDate = "20260101";
    look.estimatedBytes = 5;
    const std::string json = ToJson(look);
    StoreLook read;
    ASSERT_TRUE(FromJson(json, &read));
    EXPECT_EQ(ToJson(read), json);
    EXPECT_EQ(read.listing.Total().files, 4u);
    for (const std::string& bad : {json.substr(1), std::string("{}"), std::string("[]")})
        EXPECT_FALSE(FromJson(bad, &read));
}

}  // namespace
}  // namespace zel
