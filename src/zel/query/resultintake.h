#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "connection/databaseerror.h"
#include "connection/fleetuse.h"
#include "records/seentexts.h"
#include "zel/query/eventfilter.h"
#include "zel/query/queryarguments.h"
#include "zel/query/queryplan.h"
#include "zel/results/eventsink.h"
#include "zelstore/ieventstore.h"

namespace zel {

// The event in a result, as it was stored, but for its last brace: what the store joined behind it
// is left out. `mayBeJoined`: whether enrichments were asked for. The text is known to be UTF-8.
// Points into `result`. Only to be compared with others of its kind: it is no JSON any more.
std::string_view EventOf(std::string_view result, bool mayBeJoined);

// Takes results as the store gives them, over one walk or several, and hands each event that is
// wanted on to a sink. Refuses them, and hands on nothing more, once the sink can't take them or
// the user has interrupted. Lives on the caller's stack: its count is not looked at. Called on the
// thread of the query.
//
// An event is handed on once, though it may come several times: stored anew on another day, or
// matched by several parts of the question. It is known by its text, not by its key, since making
// a key costs more than all else that a result does; an event that was stored again with another
// text is another one.
//
// Of a fleet it takes rows, which tell their key and their host; no event comes twice from there.
class ResultIntake final : public ZEL::IQueryCallback,
                           public ZEL::IQueryRows,
                           public IFleetCallback {
public:
    struct Wanted {
        bool duplicates = false;  // an event as often as it comes
        enum { none, beside, alone } keys = {};
        std::int64_t limit = -1;  // most events to hand on; negative: all
        std::string onlyKey;      // of the one event that is wanted; empty: all
    };

    // `filter` may be null; `store` makes the keys. All must outlive the intake.
    ResultIntake(EventSink& sink, EventFilter* filter, const QueryPlan& plan, Wanted wanted,
                 ZEL::IEventStore& store)
        : sink_(sink), filter_(filter), plan_(plan), wanted_(std::move(wanted)), store_(store) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override;
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    // 0x80004004 refuses the batch and all behind it. No result is kept behind the call.
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT status, ZEL::IValueCollection* results, bool isFinal,
                                bool isComplete, ZEL::IStringValue* resumeTime,
                                std::int32_t resumeSequence) override;

    // hr::nothingToDo when no further row is needed.
    ZEL::HRESULT OnQueryRow(const ZEL::QueryRow& row) override;
    Order RowOrder() override { return plan_.rowOrder; }
    std::string_view OnlyHost() override { return ""; }

    // Whether another walk, for more rows, is to go on where the last one, for `rows`, ended too
    // early: it gave them all, and too few were new. Always false where all rows were asked for,
    // and for receipts, which are never the same twice.
    bool WantsMore(std::int64_t rows) const;
    // Ahead of each walk that begins anew. What was handed on stays known from one walk to the
    // next.
    void StartWalk() {
        rows_ = 0;
        keyless_ = 0;
    }

    // False once results are refused. This and the next may be asked from any thread.
    bool TakesResults() const noexcept;
    // Whether all rows were asked for and no further one is needed: the walk may be stopped, which
    // makes failures of its own. Those of before are kept.
    bool HasEnough() const noexcept { return hasEnough_; }
    const std::vector<DatabaseError>& FailuresSoFar() const noexcept { return failures_; }

    std::uint64_t Count() const noexcept { return count_; }
    // Whether the limit kept any from being handed on, and how many rows there were, in the last
    // walk and those that it went on from.
    bool HasMore() const noexcept { return hasMore_; }
    std::int64_t Rows() const noexcept { return rows_; }
    // Results whose key could not be made.
    std::uint64_t Keyless() const noexcept { return keyless_; }
    // Whether more came than can be remembered, so that some may have been handed on twice.
    bool MayRepeat() const noexcept { return !wanted_.duplicates && seen_.IsFull(); }
    // The row behind which a later query may go on; an empty time when there is none.
    const Cursor& Position() const noexcept { return position_; }

private:
    // One that has come, with its key and host where it brought them, or else as the value that a
    // key is made of.
    struct Came {
        std::string_view text, key, host;
        ZEL::IStringValue* value = nullptr;
    };
    void Take(ZEL::IStringValue* event);
    void Take(const Came& event);
    bool IsWanted(std::string_view mark, std::string_view text);
    void HandOn(const FoundEvent& event);
    std::string KeyOf(const Came& event);

    EventSink& sink_;
    EventFilter* const filter_;
    const QueryPlan& plan_;
    const Wanted wanted_;
    ZEL::IEventStore& store_;
    SeenTexts seen_;
    std::uint64_t count_ = 0, keyless_ = 0;
    std::int64_t rows_ = 0;   // of this walk
    unsigned unflushed_ = 0;  // rows of a fleet
    bool hasMore_ = false;
    std::atomic<bool> broken_{false}, hasEnough_{false};
    std::vector<DatabaseError> failures_;
    Cursor position_;
};

}  // namespace zel
