#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/ruleset.h"

namespace zel {

// What rules of rules found: the events between two times that make one hit.
struct CorrelationHit {
    std::uint32_t rule = 0;          // of the set
    std::string first, last;         // times of the first and the last event
    std::vector<std::string> group;  // values of the rule's group-by, in its order
    std::uint64_t count = 0;         // of events, of values, or of rules
};

// Whether a rule of rules means that rule: by its identifier, name or title.
bool IsCalled(const Rule& rule, std::string_view reference);

// Counts hits of single rules over time, for the rules of rules of a set. Hits have to come in the
// order of time; those that don't are counted as if they came at the latest time so far. Memory is
// bounded: where it is not enough the oldest groups are given up and counted. For one thread.
//
// A rule of rules is told as soon as its bounds are reached, and of one group at most once in its
// time span from the first event on: what comes in the rest of that span is part of the same.
// Bounds that only the end of a span can tell (lt, lte, eq, neq) are refused. Events without a
// field of the group-by belong to no group and are not counted.
class Correlator {
public:
    // Bytes that groups may take, about.
    explicit Correlator(const RuleSet& rules, std::size_t mostBytes = std::size_t{64} << 20);
    ~Correlator();

    // Rules that can't be counted, since what they name is not among the set or is not understood;
    // with the reason.
    const std::vector<RuleProblem>& Problems() const noexcept;
    // Whether that rule of the set is a rule of rules that is no problem.
    bool Counts(std::uint32_t rule) const;
    // Of such a rule how far records decide it: as far as the rules that it counts, and the fields
    // that it groups by. Its lists of fields are empty.
    const RuleReach& ReachOf(std::uint32_t rule) const;
    // Whether there is anything to count.
    bool IsIdle() const noexcept;
    // Whether a hit of that rule is told only as a part of others.
    bool Hides(std::uint32_t rule) const;
    // After RuleRun::Test that found rules. What became complete with this event, without what is
    // hidden; good until the next call.
    const std::vector<CorrelationHit>& Take(RuleRun& run);
    std::uint64_t GivenUp() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zel
