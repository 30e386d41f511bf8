#pragma once

#include <string>
#include <vector>

#include "hunt/readyrule.h"

namespace zel {

// Texts, as JSON writes them, of which at least one stands in the text of each event that fits a
// rule. Letter case does not matter.
struct LiteralClause {
    std::vector<std::string> texts;
    double cost = 0;  // about how often an event has one of them for other reasons
};

// The best clauses of a condition, at most two: each of them must hold. None where nothing is
// certain. They hold for texts whose writer has escaped nothing that need not be.
std::vector<LiteralClause> ClausesOf(const ReadyNode& condition, SourceId source,
                                     const RuleVocabulary& vocabulary);
// Of the events of a source, alternatives: of one of them every clause must hold. Without an
// alternative nothing is certain.
std::vector<std::vector<LiteralClause>> ClausesOf(SourceId source,
                                                  const RuleVocabulary& vocabulary);

}  // namespace zel
