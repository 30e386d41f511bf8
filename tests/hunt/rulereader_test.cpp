#include "hunt/rulereader.h"

#include <re2/re2.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using namespace testing;
using namespace zel;

std::string ShowPattern(const TextPattern& pattern) {
    std::string text;
    for (const TextPattern::Piece& piece : pattern.pieces) {
        const bool isText = piece.kind == TextPattern::Piece::Kind::text;
        const bool isRun = piece.kind == TextPattern::Piece::Kind::anyRun;
        text += isText ? "'" + piece.text + "'" : isRun ? "*" : "?";
    }
    return text.empty() ? "''" : text;
}

std::string ShowValue(const ValueTest& test) {
    using Kind = ValueTest::Kind;
    const std::string cased = test.cased ? "cased " : "";
    switch (test.kind) {
        case Kind::pattern:
            return cased + ShowPattern(test.pattern);
        case Kind::expression:
            return "/" + test.expression->pattern() + "/";
        case Kind::network:
            return test.text + " " + std::to_string(test.network.bits);
        case Kind::isThere:
            return "there";
        case Kind::isNull:
            return "null";
        default:
            break;
    }
    constexpr const char* signs[] = {"<", "<=",     ">",      ">=",   "",
                                     "",  "equals", "starts", "ends", "contains"};
    const auto kind = static_cast<std::size_t>(test.kind) - static_cast<std::size_t>(Kind::less);
    const bool isNumber = test.kind <= Kind::atLeast;
    return signs[kind] + (" " + cased) + (isNumber ? std::to_string(test.number) : test.text);
}

// "selection: all(Image='a'|'b', not(any value=*'c'*))".
std::string ShowNode(const RuleNode& node) {
    std::string text = node.name.empty() ? "" : node.name + ": ";
    if (node.kind == RuleNode::Kind::field) {
        text += node.test.field + "=";
        for (const ValueTest& value : node.test.values)
            text += (&value == node.test.values.data() ? "" : "|") + ShowValue(value);
        return text;
    }
    constexpr const char* kinds[] = {"all(", "any(", "not("};
    text += kinds[static_cast<std::size_t>(node.kind)];
    for (const RuleNode& child : node.children)
        text += (&child == node.children.data() ? "" : ", ") + ShowNode(child);
    return text + ")";
}

const Placeholders someNames{
    {"Servers", {"srv*", "dc01"}}, {"Nets", {"10.0.0.0/8", "::1"}}, {"None", {}}};

// What was read of a text with one rule: its tree, or "line:column what".
std::string TreeOf(const std::string& yaml) {
    const RuleFile read = ReadRules(yaml, "made.yml", someNames);
    if (!read.problems.empty())
        return std::to_string(read.problems.front().line) + ":" +
               std::to_string(read.problems.front().column) + " " + read.problems.front().what;
    return read.rules.size() == 1 ? ShowNode(read.rules.front().condition) : "not one rule";
}

const std::string head = "title: t\nlogsource: {product: windows}\ndetection:\n";

struct Case {
    std::string yaml, shown;
};

TEST(RuleReader, TakesAnythingThatOnlyDescribes) {
    EXPECT_EQ(TreeOf(head + "  s: {A: 1}\n  condition: s\nfields: {a: b}\ndescription: [x]\n"
                            "references: [~, {a: b}]\nfalsepositives: [Tools: of admins]\n"),
              "s: A='1'");
}

TEST(RuleReader, KeepsEscapedCharactersWhole) {
    const RuleFile file = ReadRules(R"(title: "a\_\N \xA0\x85 \L\u00e0\U0001F600")", "f", {});
    ASSERT_EQ(file.problems.size(), 1U);
    EXPECT_EQ(file.problems[0].title, "a\u00A0\u0085 \u00A0\u0085 \u2028\u00E0\U0001F600");
}

TEST(RuleReader, ReadsValuesAndModifiers) {
    const Case cases[] = {
        {"Image: a", "Image='a'"},
        {"Image: [a, 4, true, null, '', 0x1F]", "Image='a'|'4'|'true'|null|''|'0x1F'"},
        {R"(Image: a*b?\*\?\\*\c\\d\\\\e\\\*)", R"(Image='a'*'b'?'*?\'*'\c\d\\e\*')"},
        {"Image: '***?*'", "Image=*?*"},
        {"Image|contains: 'a**'", "Image=*'a'*"},
        {R"(Image|endswith: '\a.exe')", R"(Image=*'\a.exe')"},
        {"Image|startswith|cased: a", "Image=cased 'a'*"},
        {"Image|contains|all: [a, b]", "all(Image=*'a'*, Image=*'b'*)"},
        {"Image|all|windash: [-a, b]", "all(Image='-a'|'/a'|'–a'|'—a'|'―a', Image='b')"},
        {"Image|contains|windash: 'x-y /z -'",
         "Image=*'x-y -z -'*|*'x-y /z -'*|*'x-y –z -'*|*'x-y —z -'*|*'x-y ―z -'*"},
        {"Image|re|i|s: 'a.b'", "Image=/(?is)a.b/"},
        {"Ip|cidr: [10.0.0.0/8, 'fe80::/10']", "Ip=10.0.0.0/8 104|fe80::/10 10"},
        {"Ip|expand|cidr: '%Nets%'", "Ip=%Nets% 104|%Nets% 128"},
        {"Host|expand: 'a%Servers%-\\%Servers%'", "Host='asrv'*'-%Servers%'|'adc01-%Servers%'"},
        {"A|base64: abcd", "A='YWJjZA=='"},
        {"A|base64offset|contains: foobar", "A=*'Zm9vYmFy'*|*'Zvb2Jhc'*|*'mb29iYX'*"},
        {"A|wide|base64offset|contains: 'IEX'", "A=*'SQBFAFgA'*|*'kARQBYA'*|*'JAEUAWA'*"},
        {"A|utf16|base64: a", "A='//5hAA=='"},
        {"A|utf16be|base64: '\U0001F600'", "A='2D3eAA=='"},
        {"A|exists: true", "A=there"},
        {"A|exists: False", "not(A=there)"},
        {"A|gt: 1.5", "A=> 1.500000"},
        {"A|lte: [-3, '4']", "A=<= -3.000000|<= 4.000000"},
        {"A|neq: [1, b*]", "not(A='1'|'b'*)"},
        {"A|fieldref|endswith: B", "A=ends B"},
        {"A|cased|fieldref: B", "A=equals cased B"},
        {"'|all': [a, b]", "all(=*'a'*, =*'b'*)"},
        {"'|re': 'a'", "=/a/"},
        {"A: 1\n    B|contains: 2", "all(A='1', B=*'2'*)"},
    };
    for (const Case& one : cases)
        EXPECT_EQ(TreeOf(head + "  condition: s\n  s:\n    " + one.yaml), "s: " + one.shown)
            << one.yaml;
}

TEST(RuleReader, ReadsSearchesAndConditions) {
    const std::string searches =
        "  a: {X: 1}\n  b1: {X: 2}\n  b2: [{X: 3, Y: 4}, {X: 5}]\n  _c: [k1, 7]\n  d: k2\n  "
        "condition: ";
    const std::string b1 = "b1: X='2'", b2 = "b2: any(all(X='3', Y='4'), X='5')", a = "a: X='1'",
                      c = "_c: =*'k1'*|*'7'*", d = "d: =*'k2'*", b = b1 + ", " + b2;
    const Case cases[] = {
        {"a", a},
        {"a or not b1 and _c", "any(" + a + ", all(not(" + b1 + "), " + c + "))"},
        {"not (a or b1)\n    AND Not not d",
         "all(not(any(" + a + ", " + b1 + ")), not(not(" + d + ")))"},
        {"1 of b*", "any(" + b + ")"},
        {"all of *2", b2},
        {"any of b* and (a)", "all(any(" + b + "), " + a + ")"},
        {"all of them", "all(" + a + ", " + b + ", " + d + ")"},
        {"[a, 1 of _c]", "any(" + a + ", " + c + ")"},
    };
    for (const Case& one : cases)
        EXPECT_EQ(TreeOf(head + searches + one.yaml), one.shown) << one.yaml;
}

TEST(RuleReader, RefusesWhatItDoesNotUnderstand) {
    const std::string search = head + "  condition: s\n  s:\n    ";
    const std::string condition = head + "  s: {X: 1}\n  _t: {Y: 1}\n  condition: ";
    const std::string correlation = "title: c\ncorrelation:\n  type: event_count\n  rules: a\n  ";
    const Case cases[] = {
        {search + "A|foo: 1", R"(6:5 unknown modifier "foo")"},
        {search + "A|: 1", R"(6:5 unknown modifier "")"},
        {search + "A|contains|startswith: 1",
         R"(6:5 the modifier "startswith" can't stand behind "contains")"},
        {search + "A|contains|base64: 1",
         R"(6:5 the modifier "base64" can't stand behind "contains")"},
        {search + "A|i: 1", R"(6:5 "i" needs re ahead of it)"},
        {search + "A|exists|all: 1", R"(6:5 the modifier "all" can't stand behind "exists")"},
        {search + "A|wide|contains: 1", "6:5 UTF-16 needs base64 or base64offset behind it"},
        {search + "A|base64: a*", "6:15 a value with wildcards can't be encoded"},
        {search + "A|base64offset|contains: a", "6:30 too short to be looked for in base64"},
        {search + "A|re: '(?=a)'", "6:11 the expression can't be used: invalid perl operator: (?="},
        {search + "A|re: '((a{99}){99}){9}'",
         "6:11 the expression can't be used: invalid repetition size: {99}"},
        {search + "A|gt: '1 '", R"(6:11 "1 " is no number)"},
        {search + "A|cidr: 10.0.0.0/33", "6:13 a number of bits from 0 to 32 is expected"},
        {search + "A|contains: null", "6:17 null has no text that modifiers could be used on"},
        {search + "A|expand: '%Who%'", R"(6:15 the placeholder "Who" has no values)"},
        {search + "A|expand: '%None%'", R"(6:15 the placeholder "None" has no values)"},
        {search + "A|windash: -a -a -a -a -a -a", "6:16 stands for more than 10000 values"},
        {search + "A: {B: 1}", "6:8 a value has to be a text, a number, a bool or null"},
        {search + "A: []", "6:8 a list without a value"},
        {search + "A: 1\n    A: 2", R"(7:5 the key "A" stands twice)"},
        {search + "- ''", "6:7 an empty keyword stands in every event"},
        {search + "<<: {A: 1}", "6:5 merge keys (<<) are not understood"},
        {search + "A: !!int 1", R"(6:8 the tag "tag:yaml.org,2002:int" is not understood)"},
        {search + "A: [*a]", "6:9 no YAML: the referenced anchor is not defined"},
        {search + "&a A: &b [*b]", "6:15 an alias stands within what it stands for"},
        {search + "A: " + std::string(40, '[') + std::string(40, ']'),
         "6:37 nested more than 32 levels deep"},
        {"--- ,t", "1:5 no YAML: what stands there belongs to nothing"},
        {search + "A: \x04", "6:8 a control character"},
        {search + "A: \xFF", "6:0 not UTF-8"},
        {search + "A: " + std::string(70'000, 'a'), "6:0 a line of more than 64 KiB"},
        {condition + "s and t", R"(6:14 condition: there is no search "t")"},
        {condition + "1 of t*", R"(6:14 condition: there is no search "t*")"},
        {condition + "2 of s*", R"(6:14 condition: "2 of" is not understood, only 1, any or all)"},
        {condition + "s | count() > 3",
         "6:14 condition: aggregations (| count() ..) are not understood; a correlation rule takes "
         "their place"},
        {condition + "(s", "6:14 condition: a bracket is not closed"},
        {condition + "s or", "6:14 condition: a search is expected at its end"},
        {condition + "s s", R"(6:14 condition: "s" is not expected there)"},
        {condition + std::string(300, '(') + "s",
         "6:14 condition: nested more than 200 levels deep"},
        {"detection: {}", R"(1:1 the rule has no "title")"},
        {"title: t\ndetection: {}", R"(1:1 the rule has no "logsource")"},
        {head + "  s: {A: 1}", R"(4:3 the detection has no "condition")"},
        {"level: worst\n" + head, R"(1:8 unknown level "worst")"},
        {"title: t\nfilter: {}", R"(1:1 a filter for other rules ("filter") is not understood)"},
        {"title: t\naction: global",
         R"(1:1 collections of rules ("action") are not understood; each rule has to be written )"
         "in full"},
        {correlation + "timespan: 5", "5:13 a timespan such as 30s, 5m, 1h or 7d is expected"},
        {correlation + "condition: {gte: 1}", R"(3:3 the correlation has no "timespan")"},
        {correlation + "condition: {avg: 1}", R"(5:15 unknown comparison "avg")"},
        {correlation + "timespan: 1h", "3:3 the correlation has no condition such as \"gte: 10\""},
        {correlation + "window: 1h", R"(5:3 unknown key "window" in the correlation)"},
    };
    for (const Case& one : cases)
        EXPECT_EQ(TreeOf(one.yaml), one.shown) << one.yaml;
}

TEST(RuleReader, ReadsAllDocuments) {
    const std::string rule = "logsource: {category: A_b}\ndetection: {s: {X: 1}, condition: s}\n";
    const RuleFile read =
        ReadRules("title: one\nauthor: [Me, You]\nlevel: HIGH\nmine: {x: y}\n" + rule +
                      "---\ntitle: two\n---\n---\ntitle: c\nname: n\ngenerate: true\n"
                      "correlation:\n  type: value_count\n  rules: [one, x]\n  group-by: [H]\n"
                      "  timespan: 90m\n  condition: {field: U, gt: 1, lte: 9}\n"
                      "  aliases: {H: {one: A}}\n---\ntitle: four\n" +
                      rule + "---\n}",
                  "f.yml", {});
    ASSERT_EQ(read.rules.size(), 3U);
    EXPECT_EQ(read.rules[0].author + read.rules[0].level + read.rules[0].source.category,
              "Me, Youhigha_b");
    EXPECT_EQ(read.rules[2].title + std::to_string(read.rules[2].line), "four22");
    ASSERT_EQ(read.problems.size(), 2U);
    EXPECT_EQ(read.problems[0].file + read.problems[0].title, "f.ymltwo");
    EXPECT_EQ(read.problems[1].line, 26);
    ASSERT_NE(read.rules[1].counts, nullptr);
    const Correlation& counts = *read.rules[1].counts;
    EXPECT_TRUE(counts.generate && counts.kind == Correlation::Kind::valueCount);
    EXPECT_EQ(counts.timespan.count(), 5400);
    EXPECT_THAT(counts.rules, ElementsAre("one", "x"));
    EXPECT_EQ(counts.countedField + counts.groupBy.at(0) + counts.aliases.at(0).field, "UHA");
    ASSERT_EQ(counts.bounds.size(), 2U);
    EXPECT_EQ(counts.bounds[1].comparison, Correlation::Comparison::atMost);
}

// Searches that are repeated grow faster than the text.
TEST(RuleReader, BoundsWhatRulesTake) {
    std::string text = head + "  s: " + std::string(60'000, 'k') + "\n  condition: s";
    for (int i = 0; i < 2'000; ++i)
        text += "\n   or s";
    EXPECT_EQ(TreeOf(text), "5:14 condition: the rules of this text take too much memory");
}

// The public rules, where they are at hand.
TEST(RuleReader, ReadsPublicRules) {
    const char* const folder = std::getenv("ZEL_SOURCE_SAMPLES");
    if (folder == nullptr)
        GTEST_SKIP() << "ZEL_SOURCE_SAMPLES names no folder with sigma/rules";
    std::size_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(folder) + "/sigma/rules")) {
        std::ifstream stream(entry.path());
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        const RuleFile read = ReadRules(text, entry.path(), {});
        for (const RuleProblem& problem : read.problems)
            ADD_FAILURE() << problem.file << ":" << problem.line << " " << problem.what;
        count += read.rules.size();
    }
    EXPECT_GE(count, 27U);
}

}  // namespace
