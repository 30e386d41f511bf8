#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hunt/rule.h"
#include "hunt/rulesettables.h"

namespace zel {

// A rule of rules with the names in it resolved.
struct CorrelationPlan {
    // A rule that it counts. What identifies an event's group is in its fields; of a rule of rules
    // in the values of its own groups.
    struct Member {
        std::uint32_t rule = 0;
        bool isOfRules = false;
        std::vector<std::size_t> group;  // FieldId, or place among the values of the own group
        std::size_t counted = 0;         // the same
    };
    std::uint32_t rule = 0;
    Correlation::Kind kind = Correlation::Kind::eventCount;
    std::int64_t spanMs = 0;
    std::uint64_t needed = 0;  // events, values, or rules
    std::vector<Member> members;
    RuleReach reach;  // of `none` it can't be reached, whatever comes
};

// The rules of rules that can be counted, those that others count ahead of these; the others become
// problems.
std::vector<CorrelationPlan> PlanCorrelations(const RuleSet::Tables& set,
                                              std::vector<RuleProblem>* problems);

}  // namespace zel
