#include "hunt/conditionparser.h"

#include <algorithm>
#include <utility>

#include "common/asciicase.h"
#include "hunt/ruletext.h"
#include "hunt/textpattern.h"

// condition := term ("or" term)*
// term      := factor ("and" factor)*
// factor    := "not" factor | "(" condition ")" | ("1" | "any" | "all") "of" ("them" | NAME) | NAME
//
// A NAME behind "of" may have `*`; "them" are all searches whose name doesn't begin with `_`. Words
// of the language are known in any case of letters.

namespace zel {

namespace {

constexpr int mostDepth = 200;

using Kind = RuleNode::Kind;

class ConditionParser {
public:
    ConditionParser(std::string_view rest, const std::vector<RuleNode>& searches,
                    ReadingBudget* budget)
        : rest_(rest), searches_(searches), budget_(budget) {
        Next();
    }

    bool ReadWhole(RuleNode* node) {
        if (!ReadList(Kind::any, node))
            return false;
        if (word_ == "|")
            return Refuse(
                "aggregations (| count() ..) are not understood; a correlation rule "
                "takes their place");
        return word_.empty() || Refuse("\"" + std::string(word_) + "\" is not expected there");
    }
    std::string& Problem() { return problem_; }

private:
    bool Refuse(std::string what) {
        if (problem_.empty())
            problem_ = "condition: " + std::move(what);
        return false;
    }

    static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    static bool IsSign(char c) { return c == '(' || c == ')' || c == '|'; }

    void Next() {
        while (!rest_.empty() && IsBlank(rest_.front()))
            rest_.remove_prefix(1);
        std::size_t size = 0;
        while (size < rest_.size() && !IsBlank(rest_[size]) && !IsSign(rest_[size]))
            ++size;
        if (size == 0 && !rest_.empty())
            size = 1;
        word_ = rest_.substr(0, size);
        rest_.remove_prefix(size);
    }
    bool Is(std::string_view word) const { return ZEL::EqualsNoCase(word_, word); }

    // Parts with "or" between them, or with "and".
    bool ReadList(Kind kind, RuleNode* node) {
        const std::string_view between = kind == Kind::any ? "or" : "and";
        std::vector<RuleNode> parts;
        do {
            if (!parts.empty())
                Next();
            RuleNode& part = parts.emplace_back();
            if (!(kind == Kind::any ? ReadList(Kind::all, &part) : ReadFactor(&part)))
                return false;
        } while (Is(between));
        *node = Joined(kind, std::move(parts));
        return true;
    }

    bool ReadFactor(RuleNode* node) {
        if (++depth_ > mostDepth)
            return Refuse("nested more than 200 levels deep");
        const bool isRead = ReadFactorWithin(node);
        --depth_;
        return isRead;
    }

    bool ReadFactorWithin(RuleNode* node) {
        if (Is("not")) {
            Next();
            node->kind = Kind::none;
            return ReadFactor(&node->children.emplace_back());
        }
        if (Is("(")) {
            Next();
            if (!ReadList(Kind::any, node))
                return false;
            if (!Is(")"))
                return Refuse("a bracket is not closed");
            Next();
            return true;
        }
        const std::string_view name = word_;
        if (name.empty() || IsSign(name.front()) || Is("and") || Is("or"))
            return Refuse("a search is expected " +
                          (name.empty() ? "at its end" : "ahead of \"" + std::string(name) + "\""));
        Next();
        return Is("of") ? ReadSeveral(name, node) : ReadOne(name, node);
    }

    bool ReadOne(std::string_view name, RuleNode* node) {
        if (!budget_->Take(searches_.size() * name.size()))
            return Refuse(budgetSpent);
        const auto found =
            std::find_if(searches_.begin(), searches_.end(),
                         [&](const RuleNode& search) { return search.name == name; });
        if (found == searches_.end())
            return Refuse("there is no search \"" + std::string(name) + "\"");
        return Copy(*found, node);
    }

    bool ReadSeveral(std::string_view quantity, RuleNode* node) {
        const bool isAll = ZEL::EqualsNoCase(quantity, std::string_view("all"));
        if (!isAll && quantity != "1" && !ZEL::EqualsNoCase(quantity, std::string_view("any")))
            return Refuse("\"" + std::string(quantity) +
                          " of\" is not understood, only 1, any or all");
        Next();
        const std::string name(word_);
        if (name.empty() || IsSign(name.front()))
            return Refuse("names or \"them\" are expected behind \"of\"");
        const TextPattern pattern = NamePattern(name);
        std::vector<RuleNode> nodes;
        for (const RuleNode& search : searches_) {
            if (!budget_->Take((name.size() + 1) * (search.name.size() + 1)))
                return Refuse(budgetSpent);
            const bool isMeant =
                Is("them") ? !search.name.starts_with('_') : Fits(pattern, true, search.name);
            if (isMeant && !Copy(search, &nodes.emplace_back()))
                return false;
        }
        if (nodes.empty())
            return Refuse("there is no search \"" + name + "\"");
        Next();
        *node = Joined(isAll ? Kind::all : Kind::any, std::move(nodes));
        return true;
    }

    // Only `*` is special in it.
    static TextPattern NamePattern(std::string_view name) {
        using Piece = TextPattern::Piece;
        TextPattern pattern;
        for (const char c : name)
            Append(&pattern, c == '*' ? Piece{Piece::Kind::anyRun, {}}
                                      : Piece{Piece::Kind::text, std::string(1, c)});
        return pattern;
    }

    bool Copy(const RuleNode& search, RuleNode* node) {
        if (!budget_->Take(SizeOf(search)))
            return Refuse(budgetSpent);
        *node = search;
        return true;
    }

    std::string_view rest_, word_;
    const std::vector<RuleNode>& searches_;
    ReadingBudget* budget_;
    int depth_ = 0;
    std::string problem_;
};

}  // namespace

bool ReadCondition(std::string_view condition, const std::vector<RuleNode>& searches,
                   ReadingBudget* budget, RuleNode* node, std::string* problem) {
    ConditionParser parser(condition, searches, budget);
    const bool isRead = parser.ReadWhole(node);
    *problem = std::move(parser.Problem());
    return isRead;
}

RuleNode Joined(RuleNode::Kind kind, std::vector<RuleNode> children) {
    if (children.size() == 1) {
        RuleNode only = std::move(children.front());
        return only;
    }
    RuleNode node;
    node.kind = kind;
    node.children = std::move(children);
    return node;
}

std::size_t SizeOf(const RuleNode& node) noexcept {
    std::size_t bytes =
        sizeof(RuleNode) + node.name.size() + node.test.field.size() + node.test.shown.size();
    for (const ValueTest& value : node.test.values) {
        bytes += sizeof(ValueTest) + value.text.size();
        for (const TextPattern::Piece& piece : value.pattern.pieces)
            bytes += sizeof(TextPattern::Piece) + piece.text.size();
    }
    for (const RuleNode& child : node.children)
        bytes += SizeOf(child);
    return bytes;
}

}  // namespace zel
