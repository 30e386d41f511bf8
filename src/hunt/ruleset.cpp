#include "hunt/ruleset.h"

#include <algorithm>
#include <unordered_map>

#include "hunt/readyrule.h"
#include "hunt/rulepass.h"
#include "hunt/rulesettables.h"

// An event is read only when a rule may fit it, since reading costs as much as all the rest.

namespace zel {

namespace {

// So many sub-queries are asked for that more of them would cost more than to look at all events.
constexpr std::size_t mostNarrowings = 3;

bool IsOfKindAlone(const Narrowing& narrowing) {
    Narrowing rest = narrowing;
    rest.object.clear();
    rest.actions.clear();
    return rest.Empty() && !narrowing.object.empty();
}

void AddActions(const Narrowing& from, Narrowing* to) {
    if (from.actions.empty() || to->actions.empty()) {
        to->actions.clear();
        return;
    }
    for (const std::string& action : from.actions) {
        if (std::find(to->actions.begin(), to->actions.end(), action) == to->actions.end())
            to->actions.push_back(action);
    }
}

}  // namespace

RuleSet::Tables::Tables(std::vector<Rule> all, VocabularyOptions options)
    : rules(std::move(all)),
      vocabulary(options),
      ready([this] {
          std::vector<ReadyRule> made;
          made.reserve(rules.size());
          for (const Rule& rule : rules)
              made.emplace_back(rule, &vocabulary);
          return made;
      }()),
      pass(ready, vocabulary) {
    for (const Rule& rule : rules) {
        if (rule.counts == nullptr)
            continue;
        for (const std::string& name : rule.counts->groupBy)
            AddCounted(name);
        for (const Correlation::Alias& alias : rule.counts->aliases)
            AddCounted(alias.field);
        AddCounted(rule.counts->countedField);
    }
}

void RuleSet::Tables::AddCounted(const std::string& name) {
    if (!name.empty())
        countedFields.emplace(name, vocabulary.AddField(name));
}

RuleSet::RuleSet(std::vector<Rule> rules, VocabularyOptions options)
    : tables_(std::make_unique<Tables>(std::move(rules), options)) {}

RuleSet::~RuleSet() = default;

const std::vector<Rule>& RuleSet::Rules() const noexcept {
    return tables_->rules;
}

const RuleReach& RuleSet::ReachOf(std::size_t rule) const {
    return tables_->ready[rule].Reach();
}

const RuleVocabulary& RuleSet::Vocabulary() const noexcept {
    return tables_->vocabulary;
}

std::vector<Narrowing> RuleSet::Narrowings() const {
    std::vector<Narrowing> all;
    for (const std::uint32_t rule : tables_->pass.AllThatCanFit()) {
        for (Narrowing& each : tables_->vocabulary.NarrowingsOf(tables_->ready[rule].Source())) {
            if (!IsOfKindAlone(each))
                return {Narrowing{}};
            const auto same = std::find_if(all.begin(), all.end(), [&](const Narrowing& other) {
                return other.object == each.object;
            });
            if (same == all.end())
                all.push_back(std::move(each));
            else
                AddActions(each, &*same);
        }
    }
    const bool isInOrder = std::any_of(tables_->rules.begin(), tables_->rules.end(),
                                       [](const Rule& rule) { return rule.counts != nullptr; });
    if (all.size() > (isInOrder ? 1 : mostNarrowings))
        return {Narrowing{}};
    return all;
}

struct RuleRun::State {
    explicit State(const RuleSet::Tables& set)
        : tables(set), event(set.vocabulary), memory(set.pass) {}

    bool TestThese(std::string_view text, const std::vector<std::uint32_t>& rules) {
        hits.clear();
        if (rules.empty())
            return true;
        if (!event.Read(text))
            return false;
        for (const std::uint32_t rule : rules) {
            if (tables.ready[rule].Fits(event))
                hits.push_back(rule);
        }
        return true;
    }

    const RuleSet::Tables& tables;
    RuleEvent event;
    RulePass::Memory memory;
    std::vector<std::uint32_t> candidates, hits;
};

RuleRun::RuleRun(const RuleSet& rules) : state_(std::make_unique<State>(*rules.tables_)) {}

RuleRun::~RuleRun() = default;

bool RuleRun::Test(std::string_view event) {
    state_->tables.pass.Find(event, state_->memory, &state_->candidates);
    return state_->TestThese(event, state_->candidates);
}

bool RuleRun::TestAll(std::string_view event) {
    return state_->TestThese(event, state_->tables.pass.AllThatCanFit());
}

const std::vector<std::uint32_t>& RuleRun::Hits() const noexcept {
    return state_->hits;
}

std::vector<std::string> RuleRun::WhyOf(std::uint32_t rule) {
    return state_->tables.ready[rule].WhyOf(state_->event);
}

RuleEvent& RuleRun::Event() noexcept {
    return state_->event;
}

}  // namespace zel
