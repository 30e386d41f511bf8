#pragma once

#include <cstdint>
#include <optional>

#include "agent/web/eventquestion.h"
#include "agent/web/listbest.h"

namespace zel {

// Collects the newest events of a range. For the thread of the question, whose objects outlive it.
class NewestRows {
public:
    // Only what stands behind the position counts, where there is one.
    NewestRows(QuestionWork& work, EventQuestion& question,
               const std::optional<EventPlace>& behind);

    // At least `need` of them, unless there are fewer or they are too large to be kept. `window`:
    // milliseconds at the end of the range that are tried first; 0: not known. The store's result.
    ZEL::HRESULT Collect(const EventSpan& range, std::size_t need, std::int64_t window,
                         BestRows* rows);

private:
    // The times of the first and the last event that the last walk has met.
    struct Met {
        std::int64_t first = EventSpan::noEnd, last = EventSpan::noBegin;
        void Add(std::int64_t time);
    };

    bool IsOver() const { return Failed(result_) || work_.IsOver(); }
    bool CollectPart(const EventSpan& part, std::size_t mostSeen, BestRows* rows);
    bool MeetAny(const EventSpan& part);
    EventSpan LastOf(const EventSpan& part);
    std::int64_t NextWindow(const EventSpan& part, std::int64_t found, std::int64_t need) const;

    QuestionWork& work_;
    EventQuestion& question_;
    const std::optional<EventPlace>& behind_;
    const std::int64_t now_;
    Met met_;
    ZEL::HRESULT result_ = ZEL::hr::ok;
};

}  // namespace zel
