#include "hunt/rulevalues.h"

#include <re2/re2.h>

#include <charconv>
#include <cmath>
#include <utility>

#include "common/asciicase.h"
#include "hunt/conditionparser.h"
#include "hunt/modifiers.h"
#include "hunt/ruletext.h"

// A value of a rule becomes one test or several: each form that its modifiers give it is one. The
// tests of a list stand side by side in one FieldTest, one of which has to fit; with `all` each
// value has a FieldTest of its own, whose tests are its forms.
//
// Numbers and bools are compared as they are written, as texts are, for in events they are texts.

namespace zel {

namespace {

using Kind = ValueTest::Kind;

constexpr std::int64_t expressionMemory = std::int64_t{1} << 20U;  // of one, while it is used, too
constexpr std::size_t bytesPerInstruction = 64;

class ValueReader {
public:
    ValueReader(const Modifiers& modifiers, const Placeholders& placeholders, ReadingBudget* budget)
        : modifiers_(modifiers), placeholders_(placeholders), budget_(budget) {}

    // Appends the tests of one value.
    bool Read(const YamlNode& value, std::vector<ValueTest>* tests, RuleProblem* problem) {
        std::string what;
        if (ReadWithin(value, tests, &what))
            return true;
        return RefuseAt(value, std::move(what), problem);
    }

private:
    static bool Refuse(std::string what, std::string* problem) {
        *problem = std::move(what);
        return false;
    }

    bool ReadWithin(const YamlNode& value, std::vector<ValueTest>* tests, std::string* problem) {
        if (value.kind == YamlNode::Kind::list || value.kind == YamlNode::Kind::map)
            return Refuse("a value has to be a text, a number, a bool or null", problem);
        ValueTest test;
        test.kind = modifiers_.kind;
        test.cased = modifiers_.isCased;
        test.text = value.text;
        if (!budget_->Take(sizeof(ValueTest) + test.text.size()))
            return Refuse(budgetSpent, problem);
        if (value.kind == YamlNode::Kind::null)
            return ReadNull(std::move(test), tests, problem);
        if (modifiers_.IsText())
            return ReadPatterns(test, tests, problem);
        if (modifiers_.kind == Kind::network)
            return ReadNetworks(test, tests, problem);
        if (!ReadOther(value, &test, problem))
            return false;
        tests->push_back(std::move(test));
        return true;
    }

    bool ReadNull(ValueTest test, std::vector<ValueTest>* tests, std::string* problem) const {
        const bool isPlain = modifiers_.IsText() && !modifiers_.IsPlaced() && !modifiers_.expands &&
                             !modifiers_.dashes && modifiers_.base64 == Modifiers::Base64::none;
        if (!isPlain)
            return Refuse("null has no text that modifiers could be used on", problem);
        test.kind = Kind::isNull;
        tests->push_back(std::move(test));
        return true;
    }

    bool ReadPatterns(const ValueTest& model, std::vector<ValueTest>* tests,
                      std::string* problem) const {
        std::vector<TextPattern> forms;
        if (!Expand(model.text, &forms, problem))
            return false;
        if (modifiers_.dashes && !ToDashForms(&forms, problem))
            return false;
        if (modifiers_.base64 != Modifiers::Base64::none && !Encode(&forms, problem))
            return false;
        for (const TextPattern& form : forms) {
            ValueTest& test = tests->emplace_back(model);
            test.pattern = Unbound(form, modifiers_.runAhead, modifiers_.runBehind);
            if (!budget_->Take(sizeof(ValueTest) + test.text.size()))
                return Refuse(budgetSpent, problem);
        }
        return true;
    }

    bool Expand(const std::string& text, std::vector<TextPattern>* forms,
                std::string* problem) const {
        if (modifiers_.expands)
            return ExpandPlaceholders(text, placeholders_, budget_, forms, problem);
        forms->push_back(ReadPattern(text));
        return true;
    }

    bool ToDashForms(std::vector<TextPattern>* forms, std::string* problem) const {
        std::vector<TextPattern> all;
        for (const TextPattern& form : *forms) {
            if (!AppendDashForms(form, budget_, &all, problem))
                return false;
        }
        *forms = std::move(all);
        return true;
    }

    bool Encode(std::vector<TextPattern>* forms, std::string* problem) const {
        std::vector<TextPattern> all;
        for (const TextPattern& form : *forms) {
            const std::optional<std::string> plain = PlainText(form);
            if (!plain)
                return Refuse("a value with wildcards can't be encoded", problem);
            const std::string bytes =
                modifiers_.utf16 ? ToUtf16Bytes(*plain, *modifiers_.utf16) : *plain;
            const bool isWhole = modifiers_.base64 == Modifiers::Base64::whole;
            if (bytes.size() < (isWhole ? 1 : 2))
                return Refuse("too short to be looked for in base64", problem);
            if (!budget_->Take(4 * bytes.size()))
                return Refuse(budgetSpent, problem);
            for (std::string& text :
                 isWhole ? std::vector{ToBase64(bytes)} : ToBase64Offsets(bytes))
                all.push_back({{{TextPattern::Piece::Kind::text, std::move(text)}}});
        }
        *forms = std::move(all);
        return true;
    }

    bool ReadOther(const YamlNode& value, ValueTest* test, std::string* problem) const {
        switch (modifiers_.kind) {
            case Kind::expression:
                return ReadExpression(test, problem);
            case Kind::less:
            case Kind::atMost:
            case Kind::greater:
            case Kind::atLeast:
                return ReadNumber(test, problem);
            case Kind::isThere:
                return IsBool(value) || Refuse("\"exists\" is either true or false", problem);
            default:
                return !test->text.empty() || Refuse("the name of a field is expected", problem);
        }
    }

    static bool IsBool(const YamlNode& value) {
        return ZEL::EqualsNoCase(value.text, std::string_view("true")) ||
               ZEL::EqualsNoCase(value.text, std::string_view("false"));
    }

    static bool ReadNumber(ValueTest* test, std::string* problem) {
        const char* const end = test->text.data() + test->text.size();
        const auto parsed = std::from_chars(test->text.data(), end, test->number);
        if (parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(test->number))
            return Refuse("\"" + test->text + "\" is no number", problem);
        return true;
    }

    bool ReadNetworks(const ValueTest& model, std::vector<ValueTest>* tests,
                      std::string* problem) const {
        std::vector<TextPattern> forms;
        if (!Expand(model.text, &forms, problem))
            return false;
        for (const TextPattern& form : forms) {
            std::size_t at = 0;
            const std::optional<IpNetwork> network =
                IpNetwork::Of(PlainText(form).value_or("*"), problem, &at);
            if (!network)
                return false;
            tests->push_back(model);
            tests->back().network = *network;
        }
        return true;
    }

    bool ReadExpression(ValueTest* test, std::string* problem) const {
        RE2::Options options;
        options.set_log_errors(false);
        options.set_max_mem(expressionMemory);
        const std::string flags = modifiers_.flags.empty() ? "" : "(?" + modifiers_.flags + ")";
        const auto expression = std::make_shared<const RE2>(flags + test->text, options);
        const bool isGood = expression->ok();
        const std::size_t memory =
            isGood ? static_cast<std::size_t>(expression->ProgramSize()) * bytesPerInstruction
                   : std::size_t{expressionMemory};
        if (!budget_->Take(memory))
            return Refuse(budgetSpent, problem);
        if (!isGood)
            return Refuse("the expression can't be used: " + expression->error(), problem);
        test->expression = expression;
        return true;
    }

    const Modifiers& modifiers_;
    const Placeholders& placeholders_;
    ReadingBudget* budget_;
};

// A field with its modifiers, or keywords.
class FieldReader {
public:
    FieldReader(const Placeholders& placeholders, ReadingBudget* budget)
        : placeholders_(placeholders), budget_(budget) {}

    bool ReadKey(const YamlNode& key, RuleProblem* problem) {
        const std::string_view text = key.text;
        const std::size_t bar = text.find('|');
        model_.kind = RuleNode::Kind::field;
        model_.test.field = text.substr(0, bar);
        model_.test.shown = text;
        model_.test.line = key.line;
        std::string what;
        if (bar == text.npos && IsKeyword())
            return RefuseAt(key, "a field's name is expected", problem);
        if (bar != text.npos &&
            !ReadModifiers(text.substr(bar + 1), IsKeyword(), &modifiers_, &what))
            return RefuseAt(key, std::move(what), problem);
        return true;
    }

    void MakeKeywords(int line) {
        model_.kind = RuleNode::Kind::field;
        model_.test.line = line;
        modifiers_.runAhead = modifiers_.runBehind = true;
    }

    bool Read(const YamlNode& value, RuleNode* node, RuleProblem* problem) {
        const bool isMany = value.kind == YamlNode::Kind::list;
        const std::vector<const YamlNode*> values =
            isMany ? value.items : std::vector<const YamlNode*>{&value};
        if (values.empty())
            return RefuseAt(value, "a list without a value", problem);
        if (!ReadValues(values, node, problem))
            return false;
        if (modifiers_.isNegated)
            *node = Negated(std::move(*node));
        return true;
    }

private:
    bool ReadValues(const std::vector<const YamlNode*>& values, RuleNode* node,
                    RuleProblem* problem) {
        ValueReader reader(modifiers_, placeholders_, budget_);
        std::vector<RuleNode> nodes;
        for (const YamlNode* const value : values) {
            if (IsKeyword() && value->kind == YamlNode::Kind::text && value->text.empty())
                return RefuseAt(*value, "an empty keyword stands in every event", problem);
            if (nodes.empty() || modifiers_.isAll)
                nodes.push_back(model_);
            if (!budget_->Take(sizeof(RuleNode) + model_.test.shown.size()))
                return RefuseAt(*value, budgetSpent, problem);
            if (!reader.Read(*value, &nodes.back().test.values, problem))
                return false;
        }
        if (modifiers_.kind == ValueTest::Kind::isThere)
            return ReadExistence(values, std::move(nodes.front()), node, problem);
        *node = Joined(RuleNode::Kind::all, std::move(nodes));
        return true;
    }

    static bool ReadExistence(const std::vector<const YamlNode*>& values, RuleNode test,
                              RuleNode* node, RuleProblem* problem) {
        if (values.size() > 1)
            return RefuseAt(*values[1], "\"exists\" is either true or false", problem);
        const bool isThere = ZEL::EqualsNoCase(values.front()->text, std::string_view("true"));
        *node = isThere ? std::move(test) : Negated(std::move(test));
        return true;
    }

    static RuleNode Negated(RuleNode node) {
        RuleNode none;
        none.kind = RuleNode::Kind::none;
        none.children.push_back(std::move(node));
        return none;
    }

    bool IsKeyword() const noexcept { return model_.test.field.empty(); }

    const Placeholders& placeholders_;
    ReadingBudget* budget_;
    Modifiers modifiers_;
    RuleNode model_;  // without values
};

}  // namespace

bool ReadFieldTests(const YamlNode& key, const YamlNode& value, const Placeholders& placeholders,
                    ReadingBudget* budget, RuleNode* node, RuleProblem* problem) {
    FieldReader reader(placeholders, budget);
    return reader.ReadKey(key, problem) && reader.Read(value, node, problem);
}

bool ReadKeywords(const YamlNode& value, ReadingBudget* budget, RuleNode* node,
                  RuleProblem* problem) {
    const Placeholders none;
    FieldReader reader(none, budget);
    reader.MakeKeywords(value.line);
    return reader.Read(value, node, problem);
}

}  // namespace zel
