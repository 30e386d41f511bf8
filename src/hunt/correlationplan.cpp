#include "hunt/correlationplan.h"

#include <algorithm>
#include <optional>

#include "common/asciicase.h"
#include "hunt/correlator.h"

namespace zel {

namespace {

using Kind = Correlation::Kind;
using Member = CorrelationPlan::Member;

std::string Quoted(std::string_view text) {
    return std::string("\"").append(text).append("\"");
}

class Planner {
public:
    Planner(const RuleSet::Tables& set, std::vector<RuleProblem>* problems)
        : set_(set), problems_(*problems), states_(set.rules.size()), levels_(set.rules.size()) {}

    std::vector<CorrelationPlan> PlanAll() {
        for (std::uint32_t rule = 0; rule < set_.rules.size(); ++rule) {
            if (set_.rules[rule].counts != nullptr)
                Plan(rule);
        }
        return std::move(plans_);
    }

private:
    enum class State : std::uint8_t { open, begun, planned, refused };
    // Rules of rules above each other. Strangers write them, and each level is one of the stack.
    static constexpr int mostLevels = 16;

    // Rules that it counts are planned first.
    bool Plan(std::uint32_t rule) {
        if (states_[rule] == State::open) {
            states_[rule] = State::begun;
            CorrelationPlan plan;
            plan.rule = rule;
            ++depth_;
            std::string problem =
                depth_ > mostLevels ? std::string() : Fill(*set_.rules[rule].counts, &plan);
            if (depth_ > mostLevels || levels_[rule] > mostLevels)
                problem = "rules of rules stand more than " + std::to_string(mostLevels) +
                          " levels above each other";
            --depth_;
            states_[rule] = problem.empty() ? State::planned : State::refused;
            if (problem.empty())
                plans_.push_back(std::move(plan));
            else
                problems_.push_back({set_.rules[rule].file, set_.rules[rule].line, 0,
                                     set_.rules[rule].title, problem});
        }
        return states_[rule] == State::planned;
    }

    // Why it can't be counted; empty when it can.
    std::string Fill(const Correlation& counts, CorrelationPlan* plan) {
        plan->kind = counts.kind;
        plan->spanMs = std::chrono::milliseconds(counts.timespan).count();
        std::size_t thatCanFit = 0;
        for (const std::string& reference : counts.rules) {
            Member member;
            std::string problem = FillMember(plan->rule, counts, reference, &member);
            if (!problem.empty())
                return problem;
            const RuleReach reach = ReachOf(counts, member);
            thatCanFit += reach.kind != RuleReach::Kind::none ? 1 : 0;
            if (reach.kind != RuleReach::Kind::whole)
                plan->reach.kind = RuleReach::Kind::partly;
            if (plan->reach.reason.empty())
                plan->reach.reason = reach.reason;
            plan->members.push_back(std::move(member));
        }
        std::string problem = FillNeeded(counts, plan);
        if (problem.empty())
            problem = ProblemOfAliases(counts, *plan);
        if (thatCanFit < (IsTemporal(counts.kind) ? plan->needed : 1))
            plan->reach.kind = RuleReach::Kind::none;
        return problem;
    }

    // What is said of a rule that is not counted would be passed over.
    std::string ProblemOfAliases(const Correlation& counts, const CorrelationPlan& plan) const {
        for (const Correlation::Alias& alias : counts.aliases) {
            if (std::none_of(plan.members.begin(), plan.members.end(), [&](const Member& member) {
                    return IsCalled(set_.rules[member.rule], alias.rule);
                }))
                return "the alias " + Quoted(alias.name) + " is one of the rule " +
                       Quoted(alias.rule) + ", which it does not count";
        }
        return {};
    }

    // How far records decide what is counted of one rule: events without a field of the group are
    // none.
    RuleReach ReachOf(const Correlation& counts, const Member& member) const {
        const auto because = [](RuleReach::Kind kind, std::string reason) {
            return RuleReach{kind, std::move(reason), {}, {}, {}};
        };
        if (member.isOfRules) {
            const auto plan =
                std::find_if(plans_.begin(), plans_.end(),
                             [&](const CorrelationPlan& each) { return each.rule == member.rule; });
            return plan->reach;
        }
        const std::string name = Quoted(set_.rules[member.rule].title);
        const ReadyRule& ready = set_.ready[member.rule];
        if (ready.Reach().kind == RuleReach::Kind::none)
            return because(RuleReach::Kind::none,
                           "the rule " + name + " can't fit: " + ready.Reach().reason);
        std::vector<std::size_t> fields = member.group;
        if (counts.kind == Kind::valueCount)
            fields.push_back(member.counted);
        for (const std::size_t field : fields) {
            const auto id = static_cast<FieldId>(field);
            if (set_.vocabulary.StandingOf(ready.Source(), id) == FieldStanding::never)
                return because(RuleReach::Kind::none,
                               "no event that the rule " + name + " finds has " +
                                   std::string(set_.vocabulary.FieldName(id)));
        }
        return because(ready.Reach().kind, {});
    }

    static bool IsTemporal(Kind kind) {
        return kind == Kind::temporal || kind == Kind::temporalOrdered;
    }

    std::string FillMember(std::uint32_t rule, const Correlation& counts,
                           const std::string& reference, Member* member) {
        const auto is = [&](const Rule& each) { return IsCalled(each, reference); };
        const auto found = std::find_if(set_.rules.begin(), set_.rules.end(), is);
        if (found == set_.rules.end())
            return "no rule is called " + Quoted(reference);
        if (std::any_of(found + 1, set_.rules.end(), is))
            return "several rules are called " + Quoted(reference);
        member->rule = static_cast<std::uint32_t>(found - set_.rules.begin());
        member->isOfRules = found->counts != nullptr;
        if (member->isOfRules && !Plan(member->rule))
            return "the rule " + Quoted(reference) +
                   (states_[member->rule] == State::begun ? " counts this one in turn"
                                                          : " can't be counted itself");
        levels_[rule] = std::max(levels_[rule], member->isOfRules ? levels_[member->rule] + 1 : 1);
        for (const std::string& name : counts.groupBy) {
            const auto place = PlaceOf(counts, *found, name);
            if (!place)
                return "the rule " + Quoted(reference) + " does not group by " + Quoted(name);
            member->group.push_back(*place);
        }
        if (counts.kind != Kind::valueCount)
            return {};
        const auto place = PlaceOf(counts, *found, counts.countedField);
        if (!place)
            return "the rule " + Quoted(reference) + " does not group by " +
                   Quoted(counts.countedField);
        member->counted = *place;
        return {};
    }

    // Of an event rule the field; of a rule of rules where the value stands in its group; each
    // perhaps by its alias there.
    std::optional<std::size_t> PlaceOf(const Correlation& counts, const Rule& rule,
                                       std::string_view name) const {
        for (const Correlation::Alias& alias : counts.aliases) {
            if (alias.name == name && IsCalled(rule, alias.rule)) {
                name = alias.field;
                break;
            }
        }
        if (rule.counts != nullptr) {
            const auto& own = rule.counts->groupBy;
            const auto at = std::find(own.begin(), own.end(), name);
            return at == own.end() ? std::nullopt
                                   : std::optional(static_cast<std::size_t>(at - own.begin()));
        }
        return set_.countedFields.find(name)->second;
    }

    static std::string FillNeeded(const Correlation& counts, CorrelationPlan* plan) {
        using enum Correlation::Comparison;
        for (const Correlation::Bound& bound : counts.bounds) {
            if (bound.comparison != atLeast && bound.comparison != greater)
                return "of bounds only gte and gt can be told while events come";
            plan->needed =
                std::max(plan->needed, bound.number + (bound.comparison == greater ? 1 : 0));
        }
        const std::uint64_t all = counts.rules.size();
        if (IsTemporal(counts.kind)) {
            if (counts.bounds.empty())
                plan->needed = all;
            if (plan->needed > all)
                return "it counts only " + std::to_string(all) + " rules";
            if (counts.kind == Kind::temporalOrdered && plan->needed != all)
                return "an order is told of all of its rules alone";
        }
        return plan->needed == 0 ? "a bound of none fits whatever comes" : "";
    }

    const RuleSet::Tables& set_;
    std::vector<RuleProblem>& problems_;
    std::vector<State> states_;
    std::vector<int> levels_;  // of what is planned, from 1
    int depth_ = 0;            // of what is being planned
    std::vector<CorrelationPlan> plans_;
};

}  // namespace

bool IsCalled(const Rule& rule, std::string_view reference) {
    return !reference.empty() && (ZEL::EqualsNoCase(std::string_view(rule.id), reference) ||
                                  rule.name == reference || rule.title == reference);
}

std::vector<CorrelationPlan> PlanCorrelations(const RuleSet::Tables& set,
                                              std::vector<RuleProblem>* problems) {
    return Planner(set, problems).PlanAll();
}

}  // namespace zel
