#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/rule.h"

namespace zel {

// The values that stand for %name% in rules with the modifier `expand`.
using Placeholders = std::map<std::string, std::vector<std::string>>;
// Of a YAML map from names to a text or a list of texts. False, with `problem`, for anything else.
bool ReadPlaceholders(std::string_view yaml, Placeholders* placeholders, RuleProblem* problem);

// What a text of YAML holds: the rules of all its documents, and why others are none. One bad rule
// keeps none of the others from being read; text that is no YAML ends the reading there.
struct RuleFile {
    std::vector<Rule> rules;
    std::vector<RuleProblem> problems;
};
// `file`: for messages alone. Any thread. Bounded in time and memory whatever the text is.
RuleFile ReadRules(std::string_view yaml, const std::string& file,
                   const Placeholders& placeholders);

}  // namespace zel
