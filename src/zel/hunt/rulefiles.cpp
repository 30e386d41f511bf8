#include "zel/hunt/rulefiles.h"

#include <algorithm>
#include <utility>

#include "common/asciicase.h"
#include "hunt/correlator.h"
#include "hunt/rulefiles.h"
#include "zel/terminal/inputfile.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

// A tag stands for those below it, too: attack.t1059 for attack.t1059.001.
bool IsOfTag(std::string_view tag, std::string_view wanted) {
    return ZEL::StartsWithNoCase(tag, wanted) &&
           (tag.size() == wanted.size() || tag[wanted.size()] == '.');
}

bool HasTag(const Rule& rule, const std::vector<std::string>& wanted) {
    return wanted.empty() ||
           std::any_of(rule.tags.begin(), rule.tags.end(), [&](const std::string& tag) {
               return std::any_of(wanted.begin(), wanted.end(),
                                  [&](const std::string& each) { return IsOfTag(tag, each); });
           });
}

bool IsWanted(const Rule& rule, const HuntOptions& options) {
    const bool hasStatus =
        options.statuses.empty() ||
        std::any_of(options.statuses.begin(), options.statuses.end(),
                    [&](const std::string& each) { return ZEL::EqualsNoCase(rule.status, each); });
    const bool hasLevel =
        options.minLevel.empty() || SeverityOf(rule.level) >= SeverityOf(options.minLevel);
    return hasStatus && hasLevel && HasTag(rule, options.tags);
}

// Rules that are counted have to be there whatever is wanted of hits.
bool IsCounted(const Rule& rule, const Correlation& counts) {
    return std::any_of(counts.rules.begin(), counts.rules.end(),
                       [&](const std::string& name) { return IsCalled(rule, name); });
}

void KeepWanted(const HuntOptions& options, GivenRules* given) {
    std::vector<Rule>& rules = given->rules;
    auto end = std::stable_partition(rules.begin(), rules.end(),
                                     [&](const Rule& rule) { return IsWanted(rule, options); });
    given->wanted = static_cast<std::size_t>(end - rules.begin());
    for (auto each = rules.begin(); each != end; ++each) {
        if (const auto counts = each->counts)
            end = std::stable_partition(end, rules.end(),
                                        [&](const Rule& rule) { return IsCounted(rule, *counts); });
    }
    given->unwanted = static_cast<std::size_t>(rules.end() - end);
    rules.erase(end, rules.end());
}

bool ReadPlaceholdersOf(const HuntOptions& options, Placeholders* placeholders,
                        std::string* problem) {
    std::string text;
    if (options.placeholders.empty())
        return true;
    if (!ReadInputFile(options.placeholders, largestRuleFile, &text, problem))
        return false;
    RuleProblem found;
    if (ReadPlaceholders(text, placeholders, &found))
        return true;
    found.file = options.placeholders;
    *problem = InWords(found);
    return false;
}

}  // namespace

bool ReadGivenRules(const HuntOptions& options, GivenRules* given, std::string* problem) {
    if (!options.minLevel.empty() && std::find(std::begin(ruleLevels), std::end(ruleLevels),
                                               options.minLevel) == std::end(ruleLevels)) {
        *problem = "--min-level: " + UnknownName("level", options.minLevel,
                                                 {std::begin(ruleLevels), std::end(ruleLevels)});
        return false;
    }
    Placeholders placeholders;
    if (!ReadPlaceholdersOf(options, &placeholders, problem))
        return false;
    RuleFile all;
    const std::vector<std::string> files = RuleFilesOf(options.rules, &all.problems);
    ReadRuleFiles(files, placeholders, ReadInputFile, &all);
    given->rules = std::move(all.rules);
    given->problems = std::move(all.problems);
    given->files = files.size();
    if (files.empty() && given->problems.empty()) {
        *problem = "no file that ends in .yml or .yaml is there";
        return false;
    }
    KeepWanted(options, given);
    return true;
}

std::string InWords(const RuleProblem& problem) {
    return Escaped(TextOf(problem));
}

}  // namespace zel
