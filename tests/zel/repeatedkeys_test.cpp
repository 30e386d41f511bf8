#include "zel/ingest/repeatedkeys.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace zel {
namespace {

using Repeat = RepeatedKeys::Repeat;

TEST(RepeatedKeys, AnswersAsAMapWithinItsBoundAndSaysWhenItIsPassed) {
    std::mt19937 random(1);
    RepeatedKeys keys(5000);
    std::map<std::string, std::string> known;
    for (;;) {
        const std::string key = "key " + std::to_string(random() % 20000);
        const std::string record = std::to_string(random() % 2);
        const Repeat repeat = keys.Add(key, record);
        if (!keys.Complete())
            break;
        const auto [entry, isNew] = known.try_emplace(key, record);
        ASSERT_EQ(repeat, isNew                     ? Repeat::none
                          : entry->second == record ? Repeat::same
                                                    : Repeat::other);
        entry->second = record;
    }
    EXPECT_GE(known.size(), 5000U);
    EXPECT_EQ(keys.Add("the last", "1"), Repeat::none);
    EXPECT_EQ(keys.Add("the last", "2"), Repeat::other) << "what is near is still found";
}

}  // namespace
}  // namespace zel
