#include "zelstore/query/pattern.h"

#include <gtest/gtest.h>

#include <functional>

namespace ZEL {
namespace {

// 1, 0, or -1 when the matcher throws.
int Answer(const std::function<bool()>& match) {
    try {
        return match();
    } catch (const std::exception&) {
        return -1;
    }
}

// What the general matcher says.
int Plain(const std::string& expression, const std::string& text, bool caseSensitive) {
    return Answer([&] {
        const boost::regex::flag_type syntax =
            caseSensitive ? boost::regex_constants::normal : boost::regex_constants::icase;
        return boost::regex_match(text, boost::regex(expression, syntax),
                                  boost::regex_constants::match_any);
    });
}

int Fast(const std::string& expression, const std::string& text, bool caseSensitive) {
    return Answer([&] { return Pattern(expression, caseSensitive).Matches(text); });
}

// All texts of up to `length` characters of an alphabet.
std::vector<std::string> Texts(const std::string& alphabet, std::size_t length) {
    std::vector<std::string> texts{""};
    for (std::size_t begin = 0, n = 0; n < length; ++n) {
        const std::size_t end = texts.size();
        for (; begin < end; ++begin)
            for (const char c : alphabet)
                texts.push_back(texts[begin] + c);
    }
    return texts;
}

TEST(Pattern, AnswersAsTheGeneralMatcherDoes) {
    const std::vector<std::string> texts = Texts("aA.", 3);
    for (const std::string& expression : Texts("a.*\\?", 5))
        for (const std::string& text : texts)
            ASSERT_EQ(Fast(expression, text, false), Plain(expression, text, false))
                << expression << " on " << text;
    const std::string some[] = {".*\\\\cmd\\.exe",
                                "C:\\\\.*\\\\[a-z]+",
                                ".*b.*c",
                                ".*b.*b.*",
                                "a{2}.*",
                                "x|y.*",
                                "\\d+.*",
                                ".*\xC3\xA9",
                                ".*\\<a",
                                "(.*)\\1",
                                "",
                                "+",
                                ".*+",
                                ".*?a"};
    for (const std::string& expression : some)
        for (const std::string text :
             {"C:\\x\\CMD.EXE", "aab", "abcbc", "7x", "\xC3\xA9", "", "x\na"})
            for (const bool caseSensitive : {false, true})
                EXPECT_EQ(Fast(expression, text, caseSensitive),
                          Plain(expression, text, caseSensitive))
                    << expression << " on " << text;
}

TEST(Pattern, CostlyMatchesThrow) {
    const std::string text(1000, 'a'), longest(8192, 'a'), huge(20000, 'a');
    EXPECT_EQ(Fast(".*.*.*.*.*x", text, true), -1);
    EXPECT_EQ(Plain(".*a.*x", longest, true), 0);
    EXPECT_EQ(Fast(".*a.*x", longest, true), 0);
    EXPECT_EQ(Plain(".*a.*x", huge, true), -1);
    EXPECT_EQ(Fast(".*a.*x", huge, true), -1);
}

}  // namespace
}  // namespace ZEL
