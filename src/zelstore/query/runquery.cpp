#include "zelstore/query/runquery.h"

#include <algorithm>
#include <istream>
#include <streambuf>

#include "common/boundary.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/query/backgroundquery.h"
#include "zelstore/query/querysink.h"
#include "zelstore/query/timerange.h"
#include "zelstore/schema/eventquery.h"

// One query from its text to the end call. The document's sub-queries run one after the other, each
// as one scan with a sink of its own; nothing is merged. What an earlier sub-query has delivered
// stays delivered when a later one fails.
//
// The query's watch lives from the reading of the text to the last scan. What it gives up ends the
// query with 0x80004004: the document, a sub-query that is being made ready, or walks that were
// left out. A walk that was cut short does not: as any failure of one database, it is counted
// there.

namespace ZEL {

namespace {

// Tells the callback the end of its query, once, on every way out.
class EndCall {
public:
    explicit EndCall(IQueryCallback* callback) : callback_(callback) {}
    ~EndCall() {
        const HRESULT result = AtBoundary(
            [&] { return callback_->OnQueryResults(status, nullptr, true, complete, nullptr, 0); });
        if (Failed(result))
            wm::Trace(wm::message::receiverFailedAtEnd, result);
    }
    EndCall(const EndCall&) = delete;
    EndCall& operator=(const EndCall&) = delete;

    HRESULT status = hr::ok;
    bool complete = true;

private:
    IQueryCallback* const callback_;
};

struct ScanHandles {
    HANDLE stop;
    HANDLE pause;
};

HRESULT Reported(HRESULT result, wm::Place place = wm::Place::Current()) {
    if (Failed(result))
        wm::ReportError(result, "Query", place);
    return result;
}

// Picks the family and the start of the walk.
HRESULT MakeStart(const Schema::Event& subQuery, std::int32_t* family, std::string* startKey) {
    const Schema::DatePair* start = subQuery.receive_time.get();
    *family = start != nullptr ? familyReceive : familyPrimary;
    if (start == nullptr)
        start = subQuery.begin_time.get();
    if (start == nullptr)
        return hr::invalidArgument;
    std::string buffer;
    const auto time = Schema::ToUtf8(start->value, buffer);
    if (!time) {
        wm::Trace(wm::message::queryTimeNotUnicode);
        startKey->clear();  // which no database takes
        return hr::ok;
    }
    return MakeScanStartKey(*family, *time, subQuery.seq_num, startKey);
}

HRESULT RunSubQuery(IZelDbImpl& database, Schema::Event& subQuery, QuerySinkOptions options,
                    IQueryCallback* callback, const ScanHandles& handles, std::int32_t* matches) {
    HRESULT result = NormaliseTimeRange(subQuery);
    if (Failed(result))
        return result;
    std::string startKey;
    result = MakeStart(subQuery, &options.family, &startKey);
    if (Failed(result))
        return result;
    const std::unique_ptr<QuerySink> sink = QuerySink::Create(subQuery, options, callback);
    if (!sink)
        return hr::outOfMemory;
    result = database.Scan(startKey, sink.get(), handles.stop, handles.pause);
    *matches = sink->GetMatchCount();
    return result;
}

// A text that is read piece by piece, so that the reader can be stopped in between.
class WatchedText final : public std::basic_streambuf<utility::char_t> {
public:
    explicit WatchedText(utility::string_t& text) : text_(text) {}

protected:
    int_type underflow() override {
        constexpr std::size_t piece = 4096;
        constexpr std::uint64_t stepsPerCharacter = 50;
        const std::size_t size = std::min(piece, text_.size() - at_);
        if (size == 0)
            return traits_type::eof();
        Spend(EndWatch::OfThread(), size * stepsPerCharacter);
        utility::char_t* const start = text_.data() + at_;
        setg(start, start, start + size);
        at_ += size;
        return traits_type::to_int_type(*start);
    }

private:
    utility::string_t& text_;
    std::size_t at_ = 0;
};

web::json::value ParseDocument(utility::string_t text) {
    constexpr std::size_t longestAtOnce = 0x10000;
    if (text.size() <= longestAtOnce)
        return web::json::value::parse(text);
    WatchedText watched(text);
    std::basic_istream<utility::char_t> stream(&watched);
    return web::json::value::parse(stream);
}

HRESULT RunDocument(IZelDbImpl& database, const std::string& text, IQueryCallback* callback,
                    const ScanHandles& handles, const EndWatch& watch, bool* complete) {
    Schema::EventQuery query;
    query.FromJson(ParseDocument(utility::conversions::to_string_t(text)));
    std::int32_t remaining = query.limit_result_count;
    for (Schema::Event& subQuery : query.events) {
        const QuerySinkOptions options{familyPrimary, remaining, query.include_enrichments,
                                       query.no_live_enriched_events};
        std::int32_t matches = 0;
        const HRESULT result =
            Reported(RunSubQuery(database, subQuery, options, callback, handles, &matches));
        if (Failed(result))
            return result;
        if (watch.HasLeftOut())
            return hr::aborted;
        if (remaining < 0)
            continue;
        // The sink stops at the limit without seeing whether more would follow, so only a match
        // beyond it, by a later sub-query with nothing left, tells that results were cut off.
        if (matches > remaining) {
            *complete = false;
            break;
        }
        remaining -= matches;
    }
    return hr::ok;
}

}  // namespace

HRESULT RunQuery(IZelDbImpl* database, IStringValue* document, IQueryCallback* callback,
                 HANDLE stopEvent, HANDLE pauseEvent) {
    if (callback == nullptr)
        return Reported(hr::invalidArgument);
    EndCall end(callback);
    if (database == nullptr) {
        end.status = Reported(hr::fail);
        return end.status;
    }
    end.status = AtBoundary([&] {
        if (document == nullptr || document->GetLength(0) == 0)
            return Reported(hr::invalidArgument);
        std::string text;
        if (!wm::ToUtf8({document->GetText(), document->GetLength(0)}, text))
            return Reported(hr::unexpected);
        EndWatch watch(stopEvent, BackgroundQuery::CancelledOfThread());
        try {
            return RunDocument(*database, text, callback, {stopEvent, pauseEvent}, watch,
                               &end.complete);
        } catch (const GivenUp&) {
            return hr::aborted;
        }
    });
    return end.status;
}

}  // namespace ZEL
