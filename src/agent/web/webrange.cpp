#include "agent/web/webrange.h"

#include <algorithm>
#include <memory>

#include "common/boundary.h"
#include "common/eventobject.h"
#include "common/valuetext.h"
#include "questions/narrowing.h"
#include "records/eventtime.h"
#include "records/recordreader.h"
#include "zelstore/keys/keyformat.h"

// Rows of a folder stand in the order of their times, so the first of all is the least of each
// folder's first. The store can't be walked backwards; whether there is an event from some time on
// costs a seek in each folder, and halving the time between finds the last one.

namespace zel {

namespace {

// Takes the first row of each folder, or of one.
class FirstRows final : public ZEL::IQueryCallback, public ZEL::IQueryBatches {
public:
    explicit FirstRows(bool ofOne) {
        if (!stop_.Create(ofOne ? wm::EventReset::manual : wm::EventReset::automatic))
            throw std::bad_alloc();
    }

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = iid == ZEL::iidQueryBatches ? static_cast<ZEL::IQueryBatches*>(this) : nullptr;
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    std::uint32_t MostResults() override { return 1; }
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                                ZEL::IStringValue*, std::int32_t) override {
        if (isFinal)
            return ZEL::hr::ok;
        stop_.Set();
        return ZEL::AtBoundary([&] {
            std::string converted;
            const auto row = wm::Utf8Of(*results->GetValue(0), converted);
            RecordReader reader;
            if (!row || !reader.Read(*row))
                return ZEL::hr::ok;
            const std::string time(reader.Value(*FindColumn("time")).value_or(""));
            if (!time.empty() && (least.empty() || time < least))
                least = time;
            return ZEL::hr::ok;
        });
    }

    // Asks for the rows from that time on.
    void Ask(ZEL::IEventStore7& store, const std::string& since) {
        const auto document = wm::ToValue(R"({"event_query":{"events":[{"begin_time":{"value":")" +
                                          since + R"("}}]}})");
        if (document)
            ZEL::IgnoreResult(store.Query(document.Get(), this, stop_.Handle()),
                              "what was found counts");
    }

    std::string least;  // time

private:
    wm::EventObject stop_;
};

std::string TimeFrom(ZEL::IEventStore7& store, const std::string& since, bool ofOne) {
    FirstRows rows(ofOne);
    rows.Ask(store, since);
    return rows.least;
}

}  // namespace

EventRange RangeOf(ZEL::IEventStore7& store) {
    EventRange range{TimeFrom(store, "1601-01-01T00:00:00.000Z", false), ""};
    range.last = range.first;
    if (range.first.empty())
        return range;
    const auto first = MillisecondsIn(range.first);
    const auto end = MillisecondsIn("9999-12-31T23:59:59.999Z");
    if (!first || !end)
        return range;
    std::int64_t low = *first, high = *end;  // the last event is in between
    while (low < high) {
        const std::int64_t middle = low + (high - low) / 2 + 1;
        const std::string found = TimeFrom(store, EventTimeOfMilliseconds(middle)->text, true);
        if (found.empty()) {
            high = middle - 1;
            continue;
        }
        low = std::max(middle, MillisecondsIn(found).value_or(middle));
        range.last = std::max(range.last, found);
    }
    return range;
}

EventRange WalkedRangeOf(QuestionWork& work, const CountContext& context) {
    const std::string name = "range of all";
    if (const auto known = context.cache.Find(name, context.changes))
        return *static_cast<const EventRange*>(known.get());
    const std::string mark = context.changes.Mark();
    const auto range = std::make_shared<EventRange>();
    Narrowing all;
    const ZEL::HRESULT walked = work.Walk(R"({"event_query":{"events":[)" + SubQueryOf(all) + "]}}",
                                          [&range](const ZEL::QueryRow& row) {
                                              const std::string_view time =
                                                  ZEL::BeginTimeOf(row.key);
                                              if (time > range->last)
                                                  range->last = time;
                                              if (range->first.empty() || time < range->first)
                                                  range->first = time;
                                              return ZEL::hr::ok;
                                          });
    if (Succeeded(walked) && !work.IsOver())
        context.cache.Keep(name, {mark, EventSpan(), false, range, sizeof(EventRange)});
    return *range;
}

}  // namespace zel
