#pragma once

#include <cstdint>
#include <string>

#include "common/result.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/schema/eventfields.h"

namespace ZEL {

// What a sub-query asks of rows, in the terms of keys: for those who test keys that come by, or put
// the question to something else than a walk of this store.
struct SubQueryTerms {
    std::int32_t family = familyPrimary;
    bool hasTime = false;  // else it has no start, and the next three are empty
    std::string time;      // the first wanted, compared as text
    std::uint32_t sequence = 0;
    std::string startKey;  // the smallest key wanted, which says both
    std::string endTime;   // the last wanted; empty: none
    Schema::FilterMap conditions;
};

// Rewrites the sub-query's times first. 0x80070057 for an operator that makes no range and a start
// that is not Unicode; else as NormaliseTimeRange and ExtractKeyFields, for this machine's paths.
// An end that is not Unicode means none.
HRESULT ReadTerms(Schema::Event& subQuery, SubQueryTerms* terms);

}  // namespace ZEL
