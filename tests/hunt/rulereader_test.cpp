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

const Placeholders someNames{{"Servers", {"srv*", "dc01"}}, {"Nets", {"10.0.0.0/8", "::1"}}};

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
    const std::string search = head + "  condition: s\n  s:\n    ",
                      condition = head + "  s: {X: 1}\n  condition: ";
    const Case cases[] = {
        {search + "A|foo: 1", "6:5 unknown modifier \"foo\""},
        {search + "A|contains|startswith: 1",
         "6:5 the modifier \"startswith\" can't stand behind \"contains\""},
    };
    for (const Case& one : cases)
        EXPECT_EQ(TreeOf(one.yaml), one.shown) << one.yaml;
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
