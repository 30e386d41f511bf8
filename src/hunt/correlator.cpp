#include "hunt/correlator.h"

#include <algorithm>
#include <limits>
#include <list>
#include <unordered_map>

#include "common/asciicase.h"
#include "hunt/correlationplan.h"
#include "records/eventtime.h"

// A window of a group holds what counts within the time span up to now: of event_count all events,
// of value_count the last event of each value, of temporal that of each rule. Once there are enough
// it is a hit, the window is emptied, and the group rests until the span from the window's first
// event on is over, so that a burst is one hit.
//
// Of temporal_ordered the window holds for each rule how late a chain of events, one of each rule
// up to it and in their order, has begun that ends with it. A new event of a rule prolongs the
// chain of the rule ahead of it. One event does not stand for two rules of a chain.
//
// Groups stand in the order of their last events. What is over at the front goes, and when memory
// is short the front goes as it is.

namespace zel {

namespace {

using Kind = Correlation::Kind;

struct Occurrence {
    std::int64_t at = 0;
    std::string time;
    std::string value;  // of value_count and temporal: what is counted
};

struct Group {
    std::string key;
    std::vector<std::string> values;
    const CorrelationPlan* plan = nullptr;
    std::list<Occurrence> window;  // in the order of time
    std::unordered_map<std::string, std::list<Occurrence>::iterator> byValue;
    std::vector<Occurrence> chains;  // of temporal_ordered: the start of each; no time: none
    std::int64_t last = 0;
    std::int64_t restsUntil = std::numeric_limits<std::int64_t>::min();
    std::size_t bytes = 0;
};

std::string Folded(std::string_view text) {
    std::string folded(text);
    ZEL::MakeUpperAscii(folded);
    return folded;
}

// About what an entry takes with the nodes that hold it.
std::size_t SizeOf(const Occurrence& each) {
    return 160 + each.time.size() + 2 * each.value.size();
}

}  // namespace

struct Correlator::State {
    State(const RuleSet& rules, const RuleSet::Tables& set, std::size_t most)
        : plans(PlanCorrelations(set, &problems)), mostBytes(most), hides(rules.Rules().size()) {
        for (const CorrelationPlan& plan : plans)
            reaches.emplace(plan.rule, plan.reach);
        std::erase_if(plans, [](const CorrelationPlan& plan) {
            return plan.reach.kind == RuleReach::Kind::none;
        });
        std::vector<bool> tells(hides.size());
        for (const CorrelationPlan& plan : plans) {
            for (const CorrelationPlan::Member& member : plan.members) {
                hides[member.rule] = true;
                tells[member.rule] =
                    tells[member.rule] || rules.Rules()[plan.rule].counts->generate;
            }
        }
        for (std::size_t rule = 0; rule < hides.size(); ++rule)
            hides[rule] = hides[rule] && !tells[rule];
    }

    void TakeEvent(RuleRun& run);
    void TakeMember(const CorrelationPlan& plan, std::size_t member, RuleRun& run);
    void Count(const CorrelationPlan& plan, std::size_t member, std::vector<std::string> values,
               const std::string& counted);
    Group& GroupOf(const CorrelationPlan& plan, std::vector<std::string> values);
    bool AddToWindow(Group& group, Occurrence now);
    bool AddToChains(Group& group, std::size_t member, Occurrence now);
    void Tell(Group& group);
    void Forget(Group& group, std::list<Occurrence>::iterator each);
    void Drop(std::list<Group>::iterator group);
    void DropOld();

    std::vector<RuleProblem> problems;
    std::vector<CorrelationPlan> plans;  // that can be reached
    std::unordered_map<std::uint32_t, RuleReach> reaches;
    std::size_t mostBytes;
    std::vector<bool> hides;
    std::list<Group> groups;  // the one whose last event is oldest first
    std::unordered_map<std::string, std::list<Group>::iterator> byKey;
    std::size_t bytes = 0;
    std::uint64_t givenUp = 0;
    std::int64_t now = std::numeric_limits<std::int64_t>::min();
    std::string time;  // of the event
    std::vector<CorrelationHit> all, told;
};

void Correlator::State::TakeEvent(RuleRun& run) {
    time = run.Event().Time();
    now = std::max(now, MillisecondsIn(time).value_or(now));
    for (const CorrelationPlan& plan : plans) {
        // From the last on, so that an event does not prolong the chain that it has just prolonged.
        for (std::size_t member = plan.members.size(); member-- > 0;)
            TakeMember(plan, member, run);
    }
    for (CorrelationHit& hit : all) {
        if (!hides[hit.rule])
            told.push_back(std::move(hit));
    }
    DropOld();
}

void Correlator::State::TakeMember(const CorrelationPlan& plan, std::size_t number, RuleRun& run) {
    const CorrelationPlan::Member& member = plan.members[number];
    const bool countsValues = plan.kind == Kind::valueCount;
    if (!member.isOfRules) {
        if (!std::binary_search(run.Hits().begin(), run.Hits().end(), member.rule))
            return;
        std::vector<std::string> values;
        for (const std::size_t field : member.group) {
            const auto found = run.Event().ValuesOf(static_cast<FieldId>(field));
            if (found.empty())
                return;
            values.emplace_back(found.front());
        }
        if (!countsValues)
            return Count(plan, number, std::move(values), {});
        const auto found = run.Event().ValuesOf(static_cast<FieldId>(member.counted));
        if (!found.empty())
            Count(plan, number, std::move(values), std::string(found.front()));
        return;
    }
    for (std::size_t hit = 0, end = all.size(); hit < end; ++hit) {
        if (all[hit].rule != member.rule)
            continue;
        const std::vector<std::string>& own = all[hit].group;
        std::vector<std::string> values;
        for (const std::size_t place : member.group)
            values.push_back(own[place]);
        const std::string counted = countsValues ? own[member.counted] : std::string();
        Count(plan, number, std::move(values), counted);
    }
}

void Correlator::State::Count(const CorrelationPlan& plan, std::size_t member,
                              std::vector<std::string> values, const std::string& counted) {
    Group& group = GroupOf(plan, std::move(values));
    if (now <= group.restsUntil)
        return;
    Occurrence occurrence{now, time, Folded(counted)};
    if (plan.kind == Kind::temporal)
        occurrence.value = std::to_string(member);
    const bool isComplete = plan.kind == Kind::temporalOrdered
                                ? AddToChains(group, member, std::move(occurrence))
                                : AddToWindow(group, std::move(occurrence));
    if (isComplete)
        Tell(group);
}

// The group becomes the last of all.
Group& Correlator::State::GroupOf(const CorrelationPlan& plan, std::vector<std::string> values) {
    std::string key = std::to_string(plan.rule);
    for (const std::string& value : values)
        key.append(":").append(std::to_string(value.size())).append(":").append(Folded(value));
    const auto [known, isNew] = byKey.emplace(key, groups.end());
    if (isNew) {
        Group& group = groups.emplace_back();
        known->second = std::prev(groups.end());
        group.bytes = 400 + 3 * key.size();
        group.key = std::move(key);
        group.values = std::move(values);
        group.plan = &plan;
        if (plan.kind == Kind::temporalOrdered)
            group.chains.resize(plan.members.size());
        group.bytes += group.chains.size() * SizeOf({});
        bytes += group.bytes;
    } else {
        groups.splice(groups.end(), groups, known->second);
    }
    groups.back().last = now;
    return groups.back();
}

bool Correlator::State::AddToWindow(Group& group, Occurrence occurrence) {
    while (!group.window.empty() && group.window.front().at < now - group.plan->spanMs)
        Forget(group, group.window.begin());
    const bool isByValue = group.plan->kind != Kind::eventCount;
    const auto known = group.byValue.find(occurrence.value);
    if (isByValue && known != group.byValue.end())
        Forget(group, known->second);
    const std::size_t size = SizeOf(occurrence);
    group.bytes += size;
    bytes += size;
    group.window.push_back(std::move(occurrence));
    if (isByValue)
        group.byValue.emplace(group.window.back().value, std::prev(group.window.end()));
    return group.window.size() >= group.plan->needed;
}

bool Correlator::State::AddToChains(Group& group, std::size_t member, Occurrence occurrence) {
    if (member > 0) {
        const Occurrence& start = group.chains[member - 1];
        if (start.time.empty() || start.at < now - group.plan->spanMs)
            return false;
        occurrence = start;
    }
    group.chains[member] = std::move(occurrence);
    return member + 1 == group.chains.size();
}

void Correlator::State::Tell(Group& group) {
    const bool isOrdered = group.plan->kind == Kind::temporalOrdered;
    const Occurrence& first = isOrdered ? group.chains.back() : group.window.front();
    group.restsUntil = first.at + group.plan->spanMs;
    all.push_back({group.plan->rule, first.time, time, group.values,
                   isOrdered ? group.chains.size() : group.window.size()});
    while (!group.window.empty())
        Forget(group, group.window.begin());
    group.chains.assign(group.chains.size(), {});
}

void Correlator::State::Forget(Group& group, std::list<Occurrence>::iterator each) {
    const std::size_t size = SizeOf(*each);
    group.bytes -= size;
    bytes -= size;
    group.byValue.erase(each->value);
    group.window.erase(each);
}

void Correlator::State::Drop(std::list<Group>::iterator group) {
    bytes -= group->bytes;
    byKey.erase(group->key);
    groups.erase(group);
}

void Correlator::State::DropOld() {
    while (!groups.empty() && groups.front().last < now - groups.front().plan->spanMs)
        Drop(groups.begin());
    while (bytes > mostBytes && !groups.empty()) {
        Drop(groups.begin());
        ++givenUp;
    }
}

Correlator::Correlator(const RuleSet& rules, std::size_t mostBytes)
    : state_(std::make_unique<State>(rules, *rules.tables_, mostBytes)) {}

Correlator::~Correlator() = default;

const std::vector<RuleProblem>& Correlator::Problems() const noexcept {
    return state_->problems;
}

bool Correlator::Counts(std::uint32_t rule) const {
    return state_->reaches.contains(rule);
}

const RuleReach& Correlator::ReachOf(std::uint32_t rule) const {
    return state_->reaches.at(rule);
}

bool Correlator::IsIdle() const noexcept {
    return state_->plans.empty();
}

bool Correlator::Hides(std::uint32_t rule) const {
    return state_->hides[rule];
}

const std::vector<CorrelationHit>& Correlator::Take(RuleRun& run) {
    state_->all.clear();
    state_->told.clear();
    if (!state_->plans.empty() && !run.Hits().empty())
        state_->TakeEvent(run);
    return state_->told;
}

std::uint64_t Correlator::GivenUp() const noexcept {
    return state_->givenUp;
}

}  // namespace zel
