#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "zel/commands.h"
#include "zel/query/queryplan.h"
#include "zel/results/orderedsink.h"
#include "zel/results/resultform.h"
#include "zel/results/streamsink.h"
#include "zel/terminal/output.h"

namespace zel {

// What the flags say of how an answer leaves, understood and checked.
struct AnswerPlan {
    FormChoice form;
    std::optional<EventOrder> order;  // none: as the store gives them
    // Whether the limit is the order's business, so that nobody else may cut the answer off.
    bool limitsInOrder = false;
    bool needsKeys = false;
    // So many of the newest events are looked for; negative where the oldest count.
    std::int64_t newest = -1;
};
// False, with words in `problem` that name the flag. Changes `query` to ask for what is needed.
bool PlanAnswer(const QueryOptions& options, QueryPlan* query, AnswerPlan* answer,
                std::string* problem);

// What an answer's events go through behind the intake. For one answer.
class Answer {
public:
    Answer(const AnswerPlan& plan, Output& output);

    EventSink& Sink() noexcept { return ordered_ ? static_cast<EventSink&>(*ordered_) : stream_; }
    std::string Problem() const { return ordered_ ? ordered_->Problem() : stream_.Problem(); }
    // Whether the limit keeps any from being printed.
    bool HasMore() const noexcept { return limitsInOrder_ && ordered_->HasMore(); }

private:
    const std::unique_ptr<ResultForm> form_;
    StreamSink stream_;
    std::optional<OrderedSink> ordered_;
    const bool limitsInOrder_;
};

}  // namespace zel
