#include "zel/query/resultintake.h"

#include <gtest/gtest.h>

namespace zel {
namespace {

TEST(SeenTexts, KnowsEachTextUpToItsBound) {
    constexpr std::size_t most = 5000;
    SeenTexts seen(most);
    const auto text = [](std::size_t i) { return std::string(i % 40, '\0') + std::to_string(i); };
    for (const bool isNew : {true, false})
        for (std::size_t i = 0; i < most; ++i)
            ASSERT_EQ(seen.Insert(text(i)), isNew) << i;
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(seen.Insert("beyond the bound")) << "it can't be remembered";
    EXPECT_TRUE(seen.IsFull());
    EXPECT_FALSE(seen.Insert(text(0))) << "what was kept is still known";
    SeenTexts zeros;
    for (std::size_t size = 0; size < 20; ++size)
        EXPECT_TRUE(zeros.Insert(std::string(size, '\0'))) << size;
}

TEST(ResultIntake, TakesWhatWasJoinedOffAnEvent) {
    const std::pair<std::string, std::string> rows[] = {
        {R"({"a":1})", R"({"a":1)"},
        {R"({"a":{"b":1} } )", R"({"a":{"b":1} )"},
        {R"({"a":1,"enrichments":[{"x":"}"},{"enrichments":[1]}]})", R"({"a":1)"},
        {R"({"a":{"b":1,"enrichments":[2]}})", R"({"a":{"b":1,"enrichments":[2]})"},
        {R"({"enrichments":[1],"a":1})", R"({"enrichments":[1],"a":1)"},
        {R"({"a":1,"enrichments":[nonsense]})", R"({"a":1,"enrichments":[nonsense])"},
        {"no event", "no event"},
    };
    for (const auto& [result, event] : rows)
        EXPECT_EQ(EventOf(result, true), event);
    EXPECT_EQ(EventOf(R"({"a":1,"enrichments":[1]})", false), R"({"a":1,"enrichments":[1])");
}

}  // namespace
}  // namespace zel
