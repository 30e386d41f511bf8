#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hunt/rule.h"
#include "zel/commands.h"

namespace zel {

// The rules that a hunt was given.
struct GivenRules {
    std::vector<Rule> rules;            // in the order of their files, those that are wanted first
    std::vector<RuleProblem> problems;  // why others are none
    std::size_t files = 0;
    std::size_t wanted = 0;    // of `rules`; those behind them are only there to be counted
    std::size_t unwanted = 0;  // left out by level, tag or status
};

// Reads the files that `options` names, and of folders all that end in .yml or .yaml, whatever
// below them, in the order of their names. A file that can't be read is a problem like others.
// False, with words in `problem`, for what can't be asked: a level that there is not, placeholders
// that can't be read, names of nothing.
bool ReadGivenRules(const HuntOptions& options, GivenRules* given, std::string* problem);

// TextOf, for people.
std::string InWords(const RuleProblem& problem);

}  // namespace zel
