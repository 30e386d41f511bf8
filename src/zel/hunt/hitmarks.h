#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "hunt/rule.h"
#include "zel/ingest/enrichmentwriter.h"

namespace zel {

// Stores what rules found with the events themselves, as silent enrichments
// {"sigma":{"id":..,"title":..,"level":..}}: one for each rule and event, however often the hunt is
// run. In a session that is open for writing. For one thread.
class HitMarks {
public:
    explicit HitMarks(StoreSession& store) : store_(store), writer_(store, false) {}

    // `event`: as the store keeps it; `result`: the same with the enrichments joined, by which it
    // is known which marks are there. False when the store takes no more, which was told.
    bool Add(const Rule& rule, std::string_view event, std::string_view result);
    // One line, once the session is closed. False when any mark was lost or could not be made.
    bool Tell() const;

private:
    StoreSession& store_;
    EnrichmentWriter writer_;
    std::uint64_t known_ = 0, keyless_ = 0;
};

}  // namespace zel
