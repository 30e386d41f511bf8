#include "agent/rulebook.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "connection/storefolders.h"
#include "hunt/correlator.h"
#include "hunt/rulefiles.h"

namespace zel {

namespace {

// Regular files alone: others may never end.
bool ReadSmallFile(const std::string& file, std::size_t most, std::string* text,
                   std::string* problem) {
    std::error_code ignored;
    std::ifstream stream(file, std::ios::binary);
    if (!std::filesystem::is_regular_file(file, ignored) || !stream) {
        *problem = file + ": it can't be read, or is no file";
        return false;
    }
    text->resize(most + 1);
    stream.read(text->data(), static_cast<std::streamsize>(text->size()));
    text->resize(static_cast<std::size_t>(stream.gcount()));
    if (text->size() <= most)
        return true;
    *problem = file + ": it is too large for a file of rules";
    return false;
}

}  // namespace

Rulebook ReadRulebook(const AgentConfig& config) {
    Rulebook book;
    if (config.huntRules.empty())
        return book;
    RuleFile all;
    const std::vector<std::string> files = RuleFilesOf(config.huntRules, &all.problems);
    ReadRuleFiles(files, {}, ReadSmallFile, &all);
    if (files.empty() && all.problems.empty())
        all.problems.push_back(
            {config.huntRules.front(), 0, 0, "", "no file that ends in .yml or .yaml is there"});
    auto rules =
        std::make_shared<RuleSet>(std::move(all.rules), VocabularyOptions{config.huntAuditLog});
    const Correlator counter(*rules);
    all.problems.insert(all.problems.end(), counter.Problems().begin(), counter.Problems().end());
    for (const RuleProblem& problem : all.problems)
        book.problems.push_back(Printable(TextOf(problem)));
    book.summary = std::to_string(rules->Rules().size()) + " rule(s)";
    if (!book.problems.empty())
        book.summary += ", refused " + std::to_string(book.problems.size());
    if (!rules->Rules().empty())
        book.rules = std::move(rules);
    return book;
}

}  // namespace zel
