#pragma once

#include <string>

#include "agent/web/countgaps.h"

namespace zel {

// The times of the first and the last event, UTC, as the store writes them; empty for a store
// without events.
struct EventRange {
    std::string first, last;
};

// By one walk over all keys, unless it is known from before. For the thread of the question.
EventRange RangeOf(QuestionWork& work, const CountContext& context);

}  // namespace zel
