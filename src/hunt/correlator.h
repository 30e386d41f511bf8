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
    std::uint64_t count = 0;
};

// Counts hits of single rules over time, for the rules of rules of a set. Hits have to come in the
// order of time; those that don't are counted as if they came at the latest time so far. Memory is
// bounded: where it is not enough the oldest groups are given up and counted. For one thread.
class Correlator {
public:
    explicit Correlator(const RuleSet& rules);
    ~Correlator();

    // Rules that can't be counted since what they name is not among the set; with the reason.
    const std::vector<RuleProblem>& Problems() const noexcept;
    // Whether there is anything to count.
    bool IsIdle() const noexcept;
    // Whether a hit of that rule is told only as a part of others.
    bool Hides(std::uint32_t rule) const;
    // Behind RuleRun::Test. What became complete with this event, good until the next call.
    const std::vector<CorrelationHit>& Take(RuleRun& run);
    std::uint64_t GivenUp() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zel
