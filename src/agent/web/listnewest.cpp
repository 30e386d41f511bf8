#include "agent/web/listnewest.h"

#include <algorithm>

#include "common/hostservices.h"
#include "records/eventtime.h"

// The store walks from the oldest event on. So parts of the range are walked from the newest back,
// each as long as the part before lets expect to be right; one that holds far too many events is
// left at once, and tried shorter.
//
// A part that is far longer than what it holds, such as all of time, would be tried in vain again
// and again. There the last event is looked for first, by walks that leave each folder at the first
// event that fits: what begins at a time finds something, then that is the later bound, or nothing.
// Either way no event is passed over twice.

namespace zel {

namespace {

namespace hr = ZEL::hr;

constexpr std::int64_t leastLength = 60000;  // milliseconds, of a first part and of a sought end
constexpr std::int64_t growth = 16, emptyGrowth = 256;
// Where events come in bursts lengths are tried in vain; then all of a part is looked at.
constexpr int mostInVain = 6;

std::int64_t LengthOf(const EventSpan& part) {
    return part.until - part.since + 1;
}

}  // namespace

NewestRows::NewestRows(QuestionWork& work, EventQuestion& question,
                       const std::optional<EventPlace>& behind)
    : work_(work),
      question_(question),
      behind_(behind),
      now_(MillisecondsIn(wm::FormatUtc(wm::Clock().UtcNow())).value_or(EventSpan::noBegin)) {}

void NewestRows::Met::Add(std::int64_t time) {
    first = std::min(first, time);
    last = std::max(last, time);
}

// False when the part holds more than `mostSeen`. Of each folder at least the first is met.
bool NewestRows::CollectPart(const EventSpan& part, std::size_t mostSeen, BestRows* rows) {
    met_ = Met();
    std::size_t seen = 0;
    result_ = question_.Walk(work_, part, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
        met_.Add(head.time);
        if (++seen > mostSeen)
            return hr::nothingToDo;
        const EventPlace place = EventKeyReader::PlaceOf(head, row.key);
        if (!behind_ || place < *behind_)
            rows->Add(place, row);
        return hr::ok;
    });
    return seen <= mostSeen;
}

bool NewestRows::MeetAny(const EventSpan& part) {
    met_ = Met();
    result_ = question_.Walk(work_, part, [&](const ZEL::QueryRow&, const EventKeyHead& head) {
        met_.Add(head.time);
        return hr::nothingToDo;
    });
    return met_.last != EventSpan::noBegin;
}

// The end of a part in which events were met, behind which there is none. The answer begins with
// one and is short, measured by what lies ahead of it.
EventSpan NewestRows::LastOf(const EventSpan& part) {
    constexpr std::int64_t share = 256;
    const std::int64_t first = met_.first;
    EventSpan last{std::clamp(met_.last, part.since, part.until), part.until};
    const auto lengthEnough = [&] { return std::max(leastLength, (last.since - first) / share); };
    std::int64_t step = lengthEnough();
    bool isRising = true;
    while (!IsOver() && LengthOf(last) > lengthEnough()) {
        const EventSpan beyond{last.since + std::min(step, LengthOf(last) / 2), last.until};
        if (MeetAny(beyond)) {
            last.since = std::clamp(met_.last, beyond.since, beyond.until);
        } else {
            last.until = beyond.since - 1;
            isRising = false;
        }
        step = isRising ? step * growth : LengthOf(last) / 2;
    }
    return last;
}

// What stands behind the last event, and in the future, counts for no length.
std::int64_t NewestRows::NextWindow(const EventSpan& part, std::int64_t found,
                                    std::int64_t need) const {
    const std::int64_t end = std::min(found == 0 ? now_ : met_.last, part.until);
    const std::int64_t length = std::max<std::int64_t>(end - part.since + 1, 1);
    if (found == 0)
        return length * emptyGrowth;
    return length * std::clamp<std::int64_t>(2 * need / found, 2, growth);
}

ZEL::HRESULT NewestRows::Collect(const EventSpan& range, std::size_t need, std::int64_t window,
                                 BestRows* rows) {
    if (range.since > range.until)
        return result_;
    const std::size_t mostSeen = 5 * need;
    int inVain = 0;
    EventSpan rest = range;
    if (window <= 0)  // events mostly come while they happen
        window = range.until - std::min(now_, range.until) + leastLength;
    window = std::clamp<std::int64_t>(window, 1, LengthOf(range));
    while (rest.since <= rest.until && rows->Count() < need && !rows->IsCut() && !IsOver()) {
        const EventSpan part{std::max(rest.since, rest.until - window + 1), rest.until};
        BestRows found(need, true);
        const bool isBounded = part.since != part.until && inVain < mostInVain;
        if (CollectPart(part, isBounded ? mostSeen : SIZE_MAX, &found)) {
            window = NextWindow(part, static_cast<std::int64_t>(found.Count()),
                                static_cast<std::int64_t>(need));
            rest.until = part.since - 1;
            rows->Join(std::move(found));
        } else {
            ++inVain;
            const EventSpan last = LastOf(part);
            window = LengthOf(last) < LengthOf(part) ? LengthOf(last) : window / growth;
            rest.until = last.until;
        }
        window = std::clamp<std::int64_t>(window, 1, LengthOf(range));
    }
    return result_;
}

}  // namespace zel
