#pragma once

#include <cstdint>

#include "agent/web/countgaps.h"

namespace zel {

struct HistogramAsk {
    std::size_t buckets = 120;
    bool byLevel = false;  // of rules, in place of the kind of target
};

// Writes how many events there are in each length of time, as one object of JSON. For the thread of
// the question.
void AnswerHistogram(QuestionWork& work, const CountContext& context, EventQuestion question,
                     const HistogramAsk& ask);

}  // namespace zel
