#pragma once

#include <map>
#include <string>
#include <vector>

#include "hunt/readyrule.h"
#include "hunt/rulepass.h"
#include "hunt/ruleset.h"

namespace zel {

// The inside of a set, which runs and the correlator read.
struct RuleSet::Tables {
    Tables(std::vector<Rule> rules, VocabularyOptions options);

    std::vector<Rule> rules;
    RuleVocabulary vocabulary;
    std::vector<ReadyRule> ready;  // of each rule
    RulePass pass;
    // What rules of rules group by and count.
    std::map<std::string, FieldId, std::less<>> countedFields;

private:
    void AddCounted(const std::string& name);
};

}  // namespace zel
