#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "zel/commands.h"
#include "zel/query/queryplan.h"
#include "zel/results/countsink.h"
#include "zel/results/orderedsink.h"
#include "zel/results/resultform.h"
#include "zel/results/streamsink.h"
#include "zel/terminal/output.h"

namespace zel {

// What the flags say of how an answer leaves, understood and checked.
struct AnswerPlan {
    FormChoice form;
    std::optional<EventOrder> order;  // none: as the store gives them
    std::optional<CountPlan> counts;  // in place of the events
    // Whether the limit is the business of the order or the counts, so that nobody else may cut the
    // answer off.
    bool limitsItself = false;
    bool needsKeys = false;
    bool usesPager = false;
    enum { none, toPeople, asLastLine } trailer = {};
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

    EventSink& Sink() noexcept { return *first_; }
    std::string Problem() const { return first_->Problem(); }
    // Whether each event was printed when it came, and not kept for the end.
    bool PrintsAtOnce() const noexcept { return first_ == &stream_; }
    // How many of the events that were handed to the sink are printed or counted.
    std::uint64_t Shown(std::uint64_t handedOn) const noexcept {
        return ordered_ ? ordered_->Wanted() : handedOn;
    }
    // Whether the limit keeps any event from being printed.
    bool HasMore() const noexcept { return limitsItself_ && ordered_ && ordered_->HasMore(); }
    // Tells what of the counts is not there to be seen. False when that is a loss.
    bool TellCounts() const;

private:
    const std::unique_ptr<ResultForm> form_;
    StreamSink stream_;
    std::optional<OrderedSink> ordered_;
    std::optional<CountSink> counts_;
    EventSink* first_ = &stream_;
    const bool limitsItself_;
};

}  // namespace zel
