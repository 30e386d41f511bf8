#pragma once

#include <string>

#include "hunt/correlator.h"
#include "hunt/ruleset.h"
#include "zel/hunt/rulefiles.h"
#include "zel/terminal/output.h"

namespace zel {

// How many rules are decided wholly, partly, and not. Those that can't be counted are none of
// these.
struct ReachCounts {
    std::size_t whole = 0, partly = 0, none = 0;
};
ReachCounts CountReach(const RuleSet& rules, const Correlator& counter);
// "ran 298 rule(s), partly 10, not 8", for people.
std::string InWords(const ReachCounts& counts);

// Prints of each rule what decides it: `form` is text for people, or ndjson or json.
void PrintReach(const RuleSet& rules, const Correlator& counter, const std::string& form,
                Output& output);

// Tells why rules are none: the first ten, or `all` of them. Nothing where there is nothing.
void TellProblems(const std::vector<RuleProblem>& problems, bool all);

}  // namespace zel
