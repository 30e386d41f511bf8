#include "hunt/rulefiles.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

namespace zel {

namespace {

namespace fs = std::filesystem;

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
void AddFolder(const fs::path& folder, std::vector<std::string>* files,
               std::vector<RuleProblem>* problems) {
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
            problems->push_back({here.string(), 0, 0, "", error.message()});
    }
    std::sort(found.begin(), found.end());
    files->insert(files->end(), found.begin(), found.end());
}

}  // namespace

std::vector<std::string> RuleFilesOf(const std::vector<std::string>& names,
                                     std::vector<RuleProblem>* problems) {
    std::vector<std::string> files;
    for (const std::string& name : names) {
        std::error_code ignored;
        if (name != "-" && fs::is_directory(name, ignored))
            AddFolder(name, &files, problems);
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

void ReadRuleFiles(const std::vector<std::string>& files, const Placeholders& placeholders,
                   ReadText readText, RuleFile* all) {
    for (const std::string& file : files) {
        std::string text, problem;
        if (!readText(file, largestRuleFile, &text, &problem)) {
            all->problems.push_back({file, 0, 0, "", problem});
            continue;
        }
        RuleFile read = ReadRules(text, file, placeholders);
        std::move(read.rules.begin(), read.rules.end(), std::back_inserter(all->rules));
        std::move(read.problems.begin(), read.problems.end(), std::back_inserter(all->problems));
    }
}

std::string TextOf(const RuleProblem& problem) {
    std::string words = problem.file;
    if (problem.line != 0)
        words += ":" + std::to_string(problem.line);
    if (problem.line != 0 && problem.column != 0)
        words += ":" + std::to_string(problem.column);
    if (!problem.title.empty())
        words += ": " + problem.title;
    const bool isTold = problem.line == 0 && problem.what.find(problem.file) != std::string::npos;
    return isTold ? problem.what : words + ": " + problem.what;
}

int SeverityOf(std::string_view level) noexcept {
    const auto found = std::find(std::begin(ruleLevels), std::end(ruleLevels), level);
    return found == std::end(ruleLevels) ? 0 : static_cast<int>(found - std::begin(ruleLevels));
}

}  // namespace zel
