#include "zelstore/query/pattern.h"

#include <gtest/gtest.h>

#include <functional>

#include "zelstore/database/endwatch.h"

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
    for (const std::string& expression : Texts("ab+|()", 4))
        for (const std::string& text : Texts("ab", 3))
            ASSERT_EQ(Fast(expression, text, false), Plain(expression, text, false))
                << expression << " on " << text;
    const std::string some[] = {"(x|y)*ab",
                                "x?a(?:bc)*",
                                "ab{0}[^x]*",
                                "[]a]a+b",
                                "(?i)AB",
                                "\\Qab\\E",
                                "\\x61\\x61b",
                                "[[:alpha:]]{3}|7x",
                                "\\dx\\b",
                                ".*\\\\cmd\\.exe",
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
                                ".*?a",
                                ".{1}.?c.*",
                                ".?.?b.?",
                                "a.{1}*",
                                ".{2}b"};
    for (const std::string& expression : some)
        for (const std::string text :
             {"C:\\x\\CMD.EXE", "aab", "abcbc", "7x", "\xC3\xA9", "", "x\na"})
            for (const bool caseSensitive : {false, true})
                EXPECT_EQ(Fast(expression, text, caseSensitive),
                          Plain(expression, text, caseSensitive))
                    << expression << " on " << text;
}

TEST(Pattern, SimpleExpressionsHaveAnAnswerWhateverTheText) {
    std::string text(20000, 'a'), pieces = "x", maybes = "x";
    for (int i = 0; i < 20; ++i) {
        pieces = ".*a" + pieces;
        maybes = ".?a" + maybes;
    }
    for (const int ends : {0, 1}) {
        if (ends != 0)
            text += 'x';
        EXPECT_EQ(Fast(pieces, text, true), ends);
        EXPECT_EQ(Fast(".*" + maybes, text, true), ends);
    }
}

TEST(Pattern, OthersAreGivenUp) {
    const std::string text(9000, 'a');
    std::string words = "x";
    for (int i = 0; i < 500; ++i)
        words += "|(a*)*" + std::to_string(i);
    for (const std::string& expression :
         {std::string("(.*a){20}b"), words, std::string("(.*.*(()()()()()()()()){9}b)"),
          std::string(100000, '(') + std::string(100000, ')')})
        EXPECT_EQ(Fast(expression, text, true), -1) << expression.substr(0, 40);
    EXPECT_EQ(Fast("(.*a){2}", text, true), 1);

    wm::EventObject stop, never;
    ASSERT_TRUE(stop.Create(wm::EventReset::automatic, wm::EventState::set));
    ASSERT_TRUE(never.Create(wm::EventReset::automatic));
    EndWatch untold(never.Handle());
    EXPECT_THROW(Pattern("(.*a){20}b", true).Matches(text, &untold), std::runtime_error);
    EndWatch watch(stop.Handle());
    EXPECT_THROW(Pattern("(.*a){20}b", true).Matches(text, &watch, ~0ULL), GivenUp);
    ASSERT_TRUE(watch.BeginWalk() && stop.Set());
    EXPECT_THROW(Pattern(".*" + text + "b.*", true).Matches(text + text, &watch), GivenUp);
}

}  // namespace
}  // namespace ZEL
