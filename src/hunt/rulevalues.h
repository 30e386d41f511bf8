#pragma once

#include "hunt/readingbudget.h"
#include "hunt/rule.h"
#include "hunt/rulereader.h"
#include "hunt/yamltree.h"

namespace zel {

// What an entry of a search asks: `key` is a field with its modifiers ("Image|endswith", of
// keywords without a field), `value` one value or a list. False, with the place and the reason, for
// what is not understood. Any thread.
bool ReadFieldTests(const YamlNode& key, const YamlNode& value, const Placeholders& placeholders,
                    ReadingBudget* budget, RuleNode* node, RuleProblem* problem);

// The same of words that any value of the event may hold, as a list or one.
bool ReadKeywords(const YamlNode& value, ReadingBudget* budget, RuleNode* node,
                  RuleProblem* problem);

}  // namespace zel
