#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/readingbudget.h"
#include "hunt/rule.h"

namespace zel {

// Of a rule's condition, "selection and not 1 of filter_*", the tree over its searches, each of
// which has its name. False, with the reason, for what is none. Any thread.
bool ReadCondition(std::string_view condition, const std::vector<RuleNode>& searches,
                   ReadingBudget* budget, RuleNode* node, std::string* problem);

// One node of several; of one that node itself.
RuleNode Joined(RuleNode::Kind kind, std::vector<RuleNode> children);

// Roughly the memory of a node and those below it.
std::size_t SizeOf(const RuleNode& node) noexcept;

}  // namespace zel
