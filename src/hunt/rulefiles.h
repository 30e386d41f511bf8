#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/rule.h"
#include "hunt/rulereader.h"

namespace zel {

inline constexpr std::size_t largestRuleFile = std::size_t{4} << 20;  // bytes

// The files that `names` stand for: of folders all that end in .yml or .yaml, whatever below them,
// in the order of their names. Each file once, however it is named. What of a folder can't be read
// is a problem.
std::vector<std::string> RuleFilesOf(const std::vector<std::string>& names,
                                     std::vector<RuleProblem>* problems);

// Reads a small file whole, at most so many bytes; false with words in `problem`.
using ReadText = bool (*)(const std::string& file, std::size_t most, std::string* text,
                          std::string* problem);
// Adds the rules of these files to `*all`, in their order, and why others are none. A file that
// can't be read is a problem like others.
void ReadRuleFiles(const std::vector<std::string>& files, const Placeholders& placeholders,
                   ReadText readText, RuleFile* all);

// "rules/a.yml:12:5: Title: unknown modifier", as it stands in the file: not yet fit for a
// terminal.
std::string TextOf(const RuleProblem& problem);

// The levels, from informational to critical.
inline constexpr std::string_view ruleLevels[] = {"informational", "low", "medium", "high",
                                                  "critical"};
// A level's place among them; 0 for what is none of them.
int SeverityOf(std::string_view level) noexcept;

}  // namespace zel
