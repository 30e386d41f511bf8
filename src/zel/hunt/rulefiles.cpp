#include "zel/hunt/rulefiles.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "common/asciicase.h"
#include "hunt/correlator.h"
#include "hunt/rulereader.h"
#include "zel/terminal/inputfile.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t largestFile = std::size_t{4} << 20;  // bytes
constexpr std::string_view levels[] = {"informational", "low", "medium", "high", "critical"};

bool IsRuleFile(const fs::path& path) {
    const std::string ending = path.extension().string();
    return ending == ".yml" || ending == ".yaml";
}

bool IsOfOtherKind(fs::file_type type) {
    return type == fs::file_type::directory || type == fs::file_type::fifo ||
           type == fs::file_type::socket || type == fs::file_type::character ||
           type == fs::file_type::block;
}

// A folder that can't be read is a problem of its own, so that no rule goes missing in silence; so
// is a link that leads nowhere. What waits for a writer, such as a pipe, is no rule.
void AddFolder(const fs::path& folder, std::vector<std::string>* files, GivenRules* given) {
    std::error_code error;
    std::vector<std::string> found;
    std::vector<fs::path> below{folder};
    while (!below.empty()) {
        const fs::path here = std::exchange(below.back(), {});
        below.pop_back();
        fs::directory_iterator at(here, error);
        for (; !error && at != fs::directory_iterator(); at.increment(error)) {
            std::error_code ignored;
            const auto own = at->symlink_status(ignored).type();
            if (own == fs::file_type::directory)
                below.push_back(at->path());
            else if (IsRuleFile(at->path()) && !IsOfOtherKind(at->status(ignored).type()))
                found.push_back(at->path().string());
        }
        if (error)
            given->problems.push_back({here.string(), 0, 0, "", error.message()});
    }
    std::sort(found.begin(), found.end());
    files->insert(files->end(), found.begin(), found.end());
}

std::vector<std::string> FilesOf(const HuntOptions& options, GivenRules* given) {
    std::vector<std::string> files;
    for (const std::string& name : options.rules) {
        std::error_code ignored;
        if (name != "-" && fs::is_directory(name, ignored))
            AddFolder(name, &files, given);
        else
            files.push_back(name);
    }
    // A rule that is read twice would be told twice.
    std::set<fs::path> known;
    std::erase_if(files, [&](const std::string& file) {
        std::error_code ignored;
        return !known.insert(fs::weakly_canonical(file, ignored)).second && !ignored;
    });
    return files;
}

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

void ReadFile(const std::string& file, const Placeholders& placeholders, GivenRules* given) {
    std::string text, problem;
    if (!ReadInputFile(file, largestFile, &text, &problem)) {
        given->problems.push_back({file, 0, 0, "", problem});
        return;
    }
    RuleFile read = ReadRules(text, file, placeholders);
    std::move(read.rules.begin(), read.rules.end(), std::back_inserter(given->rules));
    std::move(read.problems.begin(), read.problems.end(), std::back_inserter(given->problems));
}

bool ReadPlaceholdersOf(const HuntOptions& options, Placeholders* placeholders,
                        std::string* problem) {
    std::string text;
    if (options.placeholders.empty())
        return true;
    if (!ReadInputFile(options.placeholders, largestFile, &text, problem))
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
    if (!options.minLevel.empty() &&
        std::find(std::begin(levels), std::end(levels), options.minLevel) == std::end(levels)) {
        *problem = "--min-level: " +
                   UnknownName("level", options.minLevel, {std::begin(levels), std::end(levels)});
        return false;
    }
    Placeholders placeholders;
    if (!ReadPlaceholdersOf(options, &placeholders, problem))
        return false;
    const std::vector<std::string> files = FilesOf(options, given);
    for (const std::string& file : files)
        ReadFile(file, placeholders, given);
    given->files = files.size();
    if (files.empty() && given->problems.empty()) {
        *problem = "no file that ends in .yml or .yaml is there";
        return false;
    }
    KeepWanted(options, given);
    return true;
}

std::string InWords(const RuleProblem& problem) {
    std::string words = Escaped(problem.file);
    if (problem.line != 0)
        words += ":" + std::to_string(problem.line);
    if (problem.line != 0 && problem.column != 0)
        words += ":" + std::to_string(problem.column);
    if (!problem.title.empty())
        words += ": " + Escaped(problem.title);
    const bool isTold = problem.line == 0 && problem.what.find(problem.file) != std::string::npos;
    return isTold ? Escaped(problem.what) : words + ": " + Escaped(problem.what);
}

int SeverityOf(std::string_view level) noexcept {
    const auto found = std::find(std::begin(levels), std::end(levels), level);
    return found == std::end(levels) ? 0 : static_cast<int>(found - std::begin(levels));
}

}  // namespace zel
