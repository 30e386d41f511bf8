#include "hunt/literalclauses.h"

#include <re2/filtered_re2.h>
#include <re2/re2.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

#include "common/jsontext.h"
#include "questions/textsearch.h"

// A rule that asks for all of several things needs each of them, so it has a clause of each, of
// which the best do; one that asks for any of several needs a text of each of them, or there is
// none. What must not hold needs no text. What stands in values stands in the event's text behind
// JSON's escapes, except for control characters, which are escaped in several ways: a text ends
// there.

namespace zel {

namespace {

using Clauses = std::vector<LiteralClause>;

constexpr std::size_t leastLength = 3, mostLength = 64, mostTexts = 5000, mostClauses = 2;

// Parts of many events, so that a text within one of them tells little.
bool IsCommon(std::string_view text) {
    static constexpr std::string_view common[] = {R"("C:\\Windows\\System32\\svchost.exe")",
                                                  R"(C:\\Windows\\SysWOW64\\)",
                                                  R"(C:\\Program Files (x86)\\)",
                                                  R"(C:\\Users\\)",
                                                  R"(\\AppData\\Local\\Temp\\)",
                                                  R"(HKLM\\SOFTWARE\\Microsoft\\Windows NT\\)",
                                                  R"(\\Microsoft\\Windows\\CurrentVersion\\)",
                                                  R"(HKLM\\System\\CurrentControlSet\\Services\\)",
                                                  "https://www.",
                                                  "Microsoft-Windows-Sysmon/Operational",
                                                  "NT AUTHORITY\\\\SYSTEM",
                                                  "Administrator",
                                                  ".dll\""};
    const TextSearch search(text);
    return std::any_of(std::begin(common), std::end(common),
                       [&](std::string_view each) { return search.IsIn(each); });
}

double CostOf(std::string_view text) {
    const double cost = std::pow(0.5, static_cast<double>(std::min<std::size_t>(text.size(), 12)));
    return IsCommon(text) ? 0.5 + cost : cost;
}

double CostOf(const LiteralClause& clause) {
    return std::accumulate(clause.texts.begin(), clause.texts.end(), 0.0,
                           [](double sum, const std::string& text) { return sum + CostOf(text); });
}

// The longest part without control characters, as JSON writes it; at most so long that a text of
// a kilobyte does not cost more than it tells.
std::string WrittenPart(std::string_view text) {
    std::string_view longest;
    for (std::size_t at = 0; at < text.size();) {
        const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
        const auto* const end = std::find_if(text.begin() + at, text.end(), isControl);
        const auto length = static_cast<std::size_t>(end - (text.begin() + at));
        if (length > longest.size())
            longest = text.substr(at, length);
        at += length + 1;
    }
    const std::string quoted = wm::JsonString(longest.substr(0, mostLength));
    return quoted.substr(1, quoted.size() - 2);
}

class ClauseMaker {
public:
    ClauseMaker(SourceId source, const RuleVocabulary& vocabulary)
        : source_(source), vocabulary_(vocabulary) {}

    Clauses Of(const ReadyNode& node) const {
        switch (node.kind) {
            case ReadyNode::Kind::all:
                return OfAll(node);
            case ReadyNode::Kind::any:
                return OfAny(node);
            case ReadyNode::Kind::field:
            case ReadyNode::Kind::anyValue:
                return OfField(node);
            default:
                return {};
        }
    }

private:
    Clauses OfAll(const ReadyNode& node) const {
        Clauses all;
        for (const ReadyNode& child : node.children) {
            Clauses of = Of(child);
            std::move(of.begin(), of.end(), std::back_inserter(all));
        }
        std::stable_sort(all.begin(), all.end(),
                         [](const auto& a, const auto& b) { return a.cost < b.cost; });
        if (all.size() > mostClauses)
            all.resize(mostClauses);
        return all;
    }

    Clauses OfAny(const ReadyNode& node) const {
        LiteralClause any;
        for (const ReadyNode& child : node.children) {
            const Clauses of = Of(child);
            if (of.empty())
                return {};
            any.texts.insert(any.texts.end(), of.front().texts.begin(), of.front().texts.end());
        }
        return Finished(std::move(any));
    }

    Clauses OfField(const ReadyNode& node) const {
        LiteralClause clause;
        for (const ValueTester& tester : node.testers) {
            if (!AddTexts(node, tester.Test(), &clause.texts))
                return {};
        }
        return Finished(std::move(clause));
    }

    static Clauses Finished(LiteralClause clause) {
        std::sort(clause.texts.begin(), clause.texts.end());
        clause.texts.erase(std::unique(clause.texts.begin(), clause.texts.end()),
                           clause.texts.end());
        if (clause.texts.size() > mostTexts)
            return {};
        clause.cost = CostOf(clause);
        return {std::move(clause)};
    }

    // False where nothing is certain.
    bool AddTexts(const ReadyNode& node, const ValueTest& test,
                  std::vector<std::string>* texts) const {
        if (test.kind == ValueTest::Kind::expression)
            return AddOfExpression(node, *test.expression, texts);
        if (test.kind != ValueTest::Kind::pattern)
            return false;
        std::string best;
        for (const TextPattern::Piece& piece : test.pattern.pieces) {
            std::string text = Certain(node, piece.text);
            if (text.size() >= leastLength && (best.empty() || CostOf(text) < CostOf(best)))
                best = std::move(text);
        }
        if (best.empty())
            return false;
        texts->push_back(std::move(best));
        return true;
    }

    // An expression needs one of its atoms where without any of them it is out of the question.
    bool AddOfExpression(const ReadyNode& node, const RE2& expression,
                         std::vector<std::string>* texts) const {
        re2::FilteredRE2 filter(static_cast<int>(leastLength));
        int id = 0;
        std::vector<std::string> atoms;
        std::vector<int> possible;
        if (filter.Add(expression.pattern(), expression.options(), &id) != RE2::NoError)
            return false;
        filter.Compile(&atoms);
        filter.AllPotentials({}, &possible);
        if (!possible.empty())
            return false;
        return std::all_of(atoms.begin(), atoms.end(), [&](const std::string& atom) {
            const bool isAscii = std::all_of(atom.begin(), atom.end(), [](char c) {
                return static_cast<unsigned char>(c) < 0x80;
            });
            if (isAscii)
                texts->push_back(Certain(node, atom));
            return isAscii && texts->back().size() >= leastLength;
        });
    }

    std::string Certain(const ReadyNode& node, std::string_view part) const {
        return WrittenPart(node.kind == ReadyNode::Kind::anyValue
                               ? part
                               : vocabulary_.CertainPart(source_, node.field, part));
    }

    SourceId source_;
    const RuleVocabulary& vocabulary_;
};

}  // namespace

std::vector<LiteralClause> ClausesOf(const ReadyNode& condition, SourceId source,
                                     const RuleVocabulary& vocabulary) {
    return ClauseMaker(source, vocabulary).Of(condition);
}

std::vector<std::vector<LiteralClause>> ClausesOf(SourceId source,
                                                  const RuleVocabulary& vocabulary) {
    std::vector<std::vector<LiteralClause>> alternatives;
    for (const Narrowing& narrowing : vocabulary.NarrowingsOf(source)) {
        std::vector<LiteralClause> all;
        if (!narrowing.object.empty())
            all.push_back({{wm::JsonString(narrowing.object)}});
        if (!narrowing.actions.empty()) {
            all.emplace_back();
            for (const std::string& action : narrowing.actions)
                all.back().texts.push_back(wm::JsonString(action));
        }
        if (all.empty())
            return {};
        alternatives.push_back(std::move(all));
    }
    return alternatives;
}

}  // namespace zel
