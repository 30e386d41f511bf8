#pragma once

#include <memory>

#include "hunt/rule.h"
#include "hunt/yamltree.h"

namespace zel {

// Of a rule of rules what stands below `correlation`. None, with the place and the reason, for what
// is not understood. Any thread.
std::shared_ptr<const Correlation> ReadCorrelation(const YamlNode& node, RuleProblem* problem);

}  // namespace zel
