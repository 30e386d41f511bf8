#pragma once

#include <string>

#include "hunt/ruleset.h"
#include "zel/hunt/rulefiles.h"
#include "zel/terminal/output.h"

namespace zel {

// How many rules on events are decided wholly, partly, and not. Rules of rules are none of these.
struct ReachCounts {
    std::size_t whole = 0, partly = 0, none = 0;
};
ReachCounts CountReach(const RuleSet& rules);
// "ran 298 rule(s), partly 10, not 8", for people.
std::string InWords(const ReachCounts& counts);

// Prints of each rule what decides it: `form` is text for people, or ndjson or json.
void PrintReach(const RuleSet& rules, const std::string& form, Output& output);

// Tells why rules are none: the first ten, or `all` of them. Nothing where there is nothing.
void TellProblems(const std::vector<RuleProblem>& problems, bool all);

}  // namespace zel
