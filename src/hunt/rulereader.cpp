#include "hunt/rulereader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/asciicase.h"
#include "hunt/conditionparser.h"
#include "hunt/correlationreader.h"
#include "hunt/rulevalues.h"
#include "hunt/yamltree.h"

// A rule is read whole or not at all: whatever in it bears on what it finds and is not understood
// refuses it, since a rule that has lost a part finds too little or too much and nobody sees it.
// What only describes it may hold anything; keys that are not known are the writer's own.

namespace zel {

namespace {

constexpr std::array<std::string_view, 5> levels = {"informational", "low", "medium", "high",
                                                    "critical"};
constexpr std::array<std::string_view, 5> states = {"stable", "test", "experimental", "deprecated",
                                                    "unsupported"};

std::string InLowerCase(std::string text) {
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

// One document.
class DocumentReader {
public:
    DocumentReader(const Placeholders& placeholders, ReadingBudget* budget, Rule* rule,
                   RuleProblem* problem)
        : placeholders_(placeholders), budget_(budget), rule_(rule), problem_(problem) {}

    bool Read(const YamlNode& root) {
        if (root.kind != YamlNode::Kind::map)
            return RefuseAt(root, "a rule has to be a map", problem_);
        if (!ReadTitle(root) || !IsRule(root) || !ReadDescription(root))
            return false;
        const YamlNode* const correlation = root.Find("correlation");
        return correlation != nullptr ? ReadCounts(root, *correlation) : ReadEventRule(root);
    }

private:
    bool ReadTitle(const YamlNode& root) {
        const YamlNode* const title = root.Find("title");
        if (title != nullptr && !TextOf(*title, "title", &rule_->title, problem_))
            return false;
        problem_->title = rule_->title;
        return true;
    }

    bool IsRule(const YamlNode& root) {
        if (root.Find("action") != nullptr)
            return RefuseAt(root,
                            "collections of rules (\"action\") are not understood; each rule "
                            "has to be written in full",
                            problem_);
        if (root.Find("filter") != nullptr)
            return RefuseAt(root, "a filter for other rules (\"filter\") is not understood",
                            problem_);
        return !rule_->title.empty() || RefuseAt(root, "the rule has no \"title\"", problem_);
    }

    bool ReadDescription(const YamlNode& root) {
        const std::pair<std::string_view, std::string*> texts[] = {{"id", &rule_->id},
                                                                   {"name", &rule_->name},
                                                                   {"level", &rule_->level},
                                                                   {"status", &rule_->status}};
        for (const auto& [name, text] : texts) {
            const YamlNode* const node = root.Find(name);
            if (node != nullptr && !TextOf(*node, name, text, problem_))
                return false;
        }
        std::vector<std::string> authors;
        const std::pair<std::string_view, std::vector<std::string>*> lists[] = {
            {"author", &authors}, {"tags", &rule_->tags}};
        for (const auto& [name, list] : lists) {
            const YamlNode* const node = root.Find(name);
            if (node != nullptr && !TextsOf(*node, name, list, problem_))
                return false;
        }
        for (const std::string& author : authors)
            rule_->author += (rule_->author.empty() ? "" : ", ") + author;
        return IsOneOf(root, "level", levels, &rule_->level) &&
               IsOneOf(root, "status", states, &rule_->status);
    }

    // Rules are chosen by these, so a word that is none must not pass.
    bool IsOneOf(const YamlNode& root, std::string_view name,
                 const std::array<std::string_view, 5>& words, std::string* word) {
        *word = InLowerCase(std::move(*word));
        if (word->empty() || std::find(words.begin(), words.end(), *word) != words.end())
            return true;
        return RefuseAt(*root.Find(name), "unknown " + std::string(name) + " \"" + *word + "\"",
                        problem_);
    }

    bool ReadCounts(const YamlNode& root, const YamlNode& correlation) {
        if (const YamlNode* const detection = root.Find("detection"); detection != nullptr)
            return RefuseAt(*detection, "a correlation can't have a detection as well", problem_);
        auto counts = ReadCorrelation(correlation, problem_);
        const YamlNode* const generate = root.Find("generate");
        if (counts == nullptr)
            return false;
        if (generate != nullptr && generate->text != "true" && generate->text != "false")
            return RefuseAt(*generate, "\"generate\" is either true or false", problem_);
        if (generate != nullptr && generate->text == "true") {
            auto generating = std::make_shared<Correlation>(*counts);
            generating->generate = true;
            counts = std::move(generating);
        }
        rule_->counts = std::move(counts);
        return true;
    }

    bool ReadEventRule(const YamlNode& root) {
        const YamlNode* const source = root.Find("logsource");
        const YamlNode* const detection = root.Find("detection");
        if (source == nullptr || detection == nullptr)
            return RefuseAt(root,
                            std::string("the rule has no \"") +
                                (source == nullptr ? "logsource" : "detection") + "\"",
                            problem_);
        return ReadSource(*source) && ReadDetection(*detection);
    }

    bool ReadSource(const YamlNode& node) {
        if (node.kind != YamlNode::Kind::map)
            return RefuseAt(node, "\"logsource\" has to be a map", problem_);
        const std::pair<std::string_view, std::string*> parts[] = {
            {"category", &rule_->source.category},
            {"product", &rule_->source.product},
            {"service", &rule_->source.service}};
        bool isNamed = false;
        for (const auto& [name, text] : parts) {
            const YamlNode* const part = node.Find(name);
            if (part != nullptr && !TextOf(*part, name, text, problem_))
                return false;
            *text = InLowerCase(std::move(*text));
            isNamed = isNamed || !text->empty();
        }
        return isNamed ||
               RefuseAt(node, "\"logsource\" names no category, product or service", problem_);
    }

    bool ReadDetection(const YamlNode& node) {
        if (node.kind != YamlNode::Kind::map)
            return RefuseAt(node, "\"detection\" has to be a map", problem_);
        const YamlNode* condition = nullptr;
        for (const auto& [key, value] : node.entries) {
            if (key->text == "timeframe")
                return RefuseAt(*key,
                                "aggregations over a \"timeframe\" are not understood; a "
                                "correlation rule takes their place",
                                problem_);
            if (key->text == "condition")
                condition = value;
            else if (!ReadSearch(*key, *value))
                return false;
        }
        if (condition == nullptr)
            return RefuseAt(node, "the detection has no \"condition\"", problem_);
        return ReadConditions(*condition);
    }

    bool ReadConditions(const YamlNode& node) {
        std::vector<std::string> conditions;
        if (!TextsOf(node, "condition", &conditions, problem_))
            return false;
        std::vector<RuleNode> nodes;
        std::string what;
        for (const std::string& condition : conditions) {
            if (!ReadCondition(condition, searches_, budget_, &nodes.emplace_back(), &what))
                return RefuseAt(node, std::move(what), problem_);
        }
        if (nodes.empty())
            return RefuseAt(node, "the condition is empty", problem_);
        rule_->condition = Joined(RuleNode::Kind::any, std::move(nodes));
        return true;
    }

    bool ReadSearch(const YamlNode& key, const YamlNode& value) {
        RuleNode search;
        const bool isRead = value.kind == YamlNode::Kind::map ? ReadMap(value, &search)
                            : value.kind == YamlNode::Kind::list
                                ? ReadList(value, &search)
                                : ReadKeywords(value, budget_, &search, problem_);
        search.name = key.text;
        searches_.push_back(std::move(search));
        return isRead;
    }

    bool ReadMap(const YamlNode& map, RuleNode* node) {
        std::vector<RuleNode> tests;
        for (const auto& [key, value] : map.entries) {
            if (!ReadFieldTests(*key, *value, placeholders_, budget_, &tests.emplace_back(),
                                problem_))
                return false;
        }
        if (tests.empty())
            return RefuseAt(map, "a search without a field", problem_);
        *node = Joined(RuleNode::Kind::all, std::move(tests));
        return true;
    }

    // Maps and keywords; the keywords among them are one test.
    bool ReadList(const YamlNode& list, RuleNode* node) {
        YamlNode keywords;
        keywords.kind = YamlNode::Kind::list;
        keywords.line = list.line;
        std::vector<RuleNode> nodes;
        for (const YamlNode* const item : list.items) {
            if (item->kind != YamlNode::Kind::map)
                keywords.items.push_back(item);
            else if (!ReadMap(*item, &nodes.emplace_back()))
                return false;
        }
        if (list.items.empty())
            return RefuseAt(list, "a search without a field or a keyword", problem_);
        if (!keywords.items.empty() &&
            !ReadKeywords(keywords, budget_, &nodes.emplace_back(), problem_))
            return false;
        *node = Joined(RuleNode::Kind::any, std::move(nodes));
        return true;
    }

    const Placeholders& placeholders_;
    ReadingBudget* budget_;
    Rule* rule_;
    RuleProblem* problem_;
    std::vector<RuleNode> searches_;
};

}  // namespace

RuleFile ReadRules(std::string_view yaml, const std::string& file,
                   const Placeholders& placeholders) {
    RuleFile read;
    ReadingBudget budget;
    bool isCollection = false;
    const auto readDocument = [&](const YamlNode& root) {
        if (root.kind == YamlNode::Kind::null)
            return;
        Rule rule;
        RuleProblem problem;
        rule.file = problem.file = file;
        rule.line = root.line;
        const bool isRead = DocumentReader(placeholders, &budget, &rule, &problem).Read(root);
        isCollection = isCollection || root.Find("action") != nullptr;
        if (isRead && isCollection)
            RefuseAt(root, "what \"action: global\" above adds to the rule is not understood",
                     &problem);
        if (isRead && !isCollection)
            read.rules.push_back(std::move(rule));
        else
            read.problems.push_back(std::move(problem));
    };
    RuleProblem problem;
    problem.file = file;
    if (!ReadYaml(yaml, readDocument, &problem))
        read.problems.push_back(std::move(problem));
    return read;
}

bool ReadPlaceholders(std::string_view yaml, Placeholders* placeholders, RuleProblem* problem) {
    bool isGood = true;
    const auto readDocument = [&](const YamlNode& root) {
        if (root.kind == YamlNode::Kind::null || !isGood)
            return;
        isGood = root.kind == YamlNode::Kind::map ||
                 RefuseAt(root, "a map from names to values is expected", problem);
        for (const auto& [key, value] : root.entries)
            isGood = isGood && TextsOf(*value, key->text, &(*placeholders)[key->text], problem);
    };
    return ReadYaml(yaml, readDocument, problem) && isGood;
}

}  // namespace zel
