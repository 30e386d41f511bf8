#pragma once

#include <string>

#include "agent/web/countgaps.h"
#include "zelstore/ieventstore.h"

namespace zel {

// The times of the first and the last event, UTC, as the store writes them; empty for a store
// without events.
struct EventRange {
    std::string first, last;
};

// Asks the store some fifty times for one row of each folder, which reads next to nothing of it.
// Events that come meanwhile may be missing. Any thread.
EventRange RangeOf(ZEL::IEventStore7& store);
// The same by one walk over all keys, unless it is known from before. For a store that is read
// alone, which opens its folders anew for each question. For the thread of the question.
EventRange WalkedRangeOf(QuestionWork& work, const CountContext& context);

}  // namespace zel
