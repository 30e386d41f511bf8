#include <re2/re2.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "fuzz.h"
#include "hunt/rulereader.h"

// Rules of a YAML text. Input: the text. Whatever is read keeps what its structures promise, and a
// rule that is none has a reason.

namespace {

using namespace ZEL;
using zel::RuleNode;
using zel::ValueTest;

void CheckPattern(const zel::TextPattern& pattern, const std::string& shown) {
    using Kind = zel::TextPattern::Piece::Kind;
    const zel::TextPattern::Piece* ahead = nullptr;
    for (const zel::TextPattern::Piece& piece : pattern.pieces) {
        fuzz::Check((piece.kind == Kind::text) != piece.text.empty(), {shown, "an empty text"});
        fuzz::Check(piece.kind == Kind::anyOne || ahead == nullptr || ahead->kind != piece.kind,
                    {shown, "two pieces that are one"});
        ahead = &piece;
    }
}

void CheckValue(const ValueTest& value, bool isKeyword, const std::string& shown) {
    using Kind = ValueTest::Kind;
    const bool isExpression = value.kind == Kind::expression;
    const bool isPattern = value.kind == Kind::pattern;
    CheckPattern(value.pattern, shown);
    fuzz::Check(isPattern || value.pattern.pieces.empty(), {shown, "a pattern of no use"});
    fuzz::Check(isExpression == (value.expression != nullptr), {shown, "an expression"});
    fuzz::Check(!isExpression || value.expression->ok(), {shown, "an expression that is none"});
    fuzz::Check(std::isfinite(value.number), {shown, "a number"});
    fuzz::Check(value.network.bits >= 0 && value.network.bits <= 128, {shown, "bits"});
    fuzz::Check(value.kind < Kind::equalsField || !value.text.empty(), {shown, "a field"});
    fuzz::Check(!isKeyword || isExpression || isPattern, {shown, "a keyword"});
    if (isKeyword && isPattern) {
        constexpr auto run = zel::TextPattern::Piece::Kind::anyRun;
        fuzz::Check(
            value.pattern.pieces.front().kind == run && value.pattern.pieces.back().kind == run,
            {shown, "a keyword is looked for anywhere"});
    }
}

void CheckNode(const RuleNode& node, int lines) {
    using Kind = RuleNode::Kind;
    const std::size_t children = node.children.size();
    fuzz::Check(node.kind == Kind::field  ? children == 0
                : node.kind == Kind::none ? children == 1
                                          : children > 1,
                {node.name, "children"});
    for (const RuleNode& child : node.children)
        CheckNode(child, lines);
    fuzz::Check((node.kind == Kind::field) != node.test.values.empty(), {node.name, "values"});
    fuzz::Check(node.test.line <= lines && (node.test.line > 0) == (node.kind == Kind::field),
                {node.test.shown, "a line"});
    fuzz::Check(node.test.shown.starts_with(node.test.field), {node.test.shown, "a field"});
    for (const ValueTest& value : node.test.values)
        CheckValue(value, node.test.field.empty(), node.test.shown);
}

void CheckCorrelation(const zel::Correlation& counts, const std::string& title) {
    using Kind = zel::Correlation::Kind;
    const bool isCount = counts.kind == Kind::eventCount || counts.kind == Kind::valueCount;
    fuzz::Check(!counts.rules.empty() && counts.timespan.count() > 0, {title, "rules, time"});
    fuzz::Check(!isCount || !counts.bounds.empty(), {title, "no bound"});
    fuzz::Check((counts.kind == Kind::valueCount) != counts.countedField.empty(), {title, "field"});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int lines = 1 + static_cast<int>(std::count(text.begin(), text.end(), '\n') +
                                           std::count(text.begin(), text.end(), '\r'));
    const zel::Placeholders placeholders{{"Some", {"a*", "", "10.0.0.0/8"}}, {"None", {}}};
    const zel::RuleFile read = zel::ReadRules(text, "made.yml", placeholders);
    for (const zel::Rule& rule : read.rules) {
        const zel::LogSource& source = rule.source;
        fuzz::Check(!rule.title.empty() && rule.line > 0 && rule.line <= lines, {rule.title});
        if (rule.counts != nullptr) {
            CheckCorrelation(*rule.counts, rule.title);
            continue;
        }
        CheckNode(rule.condition, lines);
        fuzz::Check(!(source.category + source.product + source.service).empty(), {rule.title});
    }
    for (const zel::RuleProblem& problem : read.problems)
        fuzz::Check(!problem.what.empty() && problem.line <= lines && problem.line >= 0,
                    {problem.what, std::to_string(problem.line)});
    zel::Placeholders others;
    zel::RuleProblem problem;
    fuzz::Check(zel::ReadPlaceholders(text, &others, &problem) == problem.what.empty(), {text});
    return 0;
}
