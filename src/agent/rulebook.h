#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/config.h"
#include "hunt/ruleset.h"

namespace zel {

// The rules that the configuration names, made ready.
struct Rulebook {
    std::shared_ptr<const RuleSet> rules;  // null: none is named, or none can be asked
    std::vector<std::string> problems;     // why others are none, for people
    std::string summary;                   // "5 rule(s), refused 1"; empty where none is named
};

// Takes as long as reading them. Any thread.
Rulebook ReadRulebook(const AgentConfig& config);

}  // namespace zel
