#include "zelstore/query/runquery.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <streambuf>
#include <utility>
#include <vector>

#include "common/boundary.h"
#include "common/countedptr.h"
#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/failurelistener.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/query/backgroundquery.h"
#include "zelstore/query/partssink.h"
#include "zelstore/query/querysink.h"
#include "zelstore/query/timerange.h"
#include "zelstore/schema/eventquery.h"

// One query from its text to the end call. The document's sub-queries deliver one after the other,
// each through a sink of its own; nothing is merged. Those that follow each other with the same
// range share one walk (partssink.h), all others have a scan each. What an earlier sub-query has
// delivered stays delivered when a later one fails: one that can't be made ready ends the row of
// those that share, and the query when its turn comes.
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

// Tells a callback that wants to know what fails for its query.
class ToldFailures final : public FailureListener {
public:
    explicit ToldFailures(IQueryCallback* callback) {
        if (Failed(callback->QueryInterface(iidQueryFailures, face_.ReceiveVoid())))
            face_.Reset();
    }

    void OnFailure(const std::wstring& path, DatabaseErrorKind kind, HRESULT result) override {
        if (!face_)
            return;
        const auto folder = CountedPtr<IStringValue>::Adopt(
            wm::CreateStringValue(wm::LastPathComponent(path).c_str()));
        if (folder)
            face_->OnDatabaseFailure(folder.Get(), static_cast<std::uint32_t>(kind) + 1, result);
    }

private:
    CountedPtr<IQueryFailures> face_;
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

// A sub-query that is ready to be walked for, or why it is not.
struct Part {
    HRESULT result = hr::ok;
    std::string startKey;
    std::unique_ptr<QuerySink> sink;
};

// A document under way.
class DocumentRun {
public:
    DocumentRun(IZelDbImpl& database, Schema::EventQuery& query, IQueryCallback* callback,
                const ScanHandles& handles, const EndWatch& watch)
        : database_(database),
          query_(query),
          callback_(callback),
          handles_(handles),
          watch_(watch),
          remaining_(query.limit_result_count) {}

    // Sets `*complete` to false when the limit has cut results off.
    HRESULT Run(bool* complete);

private:
    Part TakeNext();
    Part MakeReady(Schema::Event& subQuery);
    // The next parts that share a walk; or a single one.
    std::vector<Part> TakeSharing();
    HRESULT Scan(const Part& part, IQuerySink* sink) {
        return database_.Scan(part.startKey, sink, handles_.stop, handles_.pause);
    }
    HRESULT RunParts(std::vector<Part>& parts, bool* complete);
    // What is left to do for a part when all the parts' walk is over.
    HRESULT FinishPart(std::vector<Part>& parts, std::size_t part, PartsSink& all);
    // Takes the matches of a part off the limit. False when they were too many.
    bool Count(std::int32_t matches);

    IZelDbImpl& database_;
    Schema::EventQuery& query_;
    IQueryCallback* const callback_;
    const ScanHandles handles_;
    const EndWatch& watch_;
    std::int32_t remaining_;
    std::size_t next_ = 0;
    std::optional<Part> ahead_;  // was made ready, and shares with none before it
};

HRESULT DocumentRun::Run(bool* complete) {
    while (*complete && (ahead_ || next_ < query_.events.size())) {
        std::vector<Part> parts = TakeSharing();
        const HRESULT result = RunParts(parts, complete);
        if (Failed(result))
            return result;
    }
    return hr::ok;
}

Part DocumentRun::TakeNext() {
    if (!ahead_)
        return MakeReady(query_.events[next_++]);
    Part part = std::move(*ahead_);
    ahead_.reset();
    return part;
}

Part DocumentRun::MakeReady(Schema::Event& subQuery) {
    Part part;
    part.result = NormaliseTimeRange(subQuery);
    if (Failed(part.result))
        return part;
    QuerySinkOptions options{familyPrimary, remaining_, query_.include_enrichments,
                             query_.no_live_enriched_events};
    part.result = MakeStart(subQuery, &options.family, &part.startKey);
    if (Failed(part.result))
        return part;
    part.sink = QuerySink::Create(subQuery, options, callback_);
    if (!part.sink)
        part.result = hr::outOfMemory;
    return part;
}

// The start tells the family as well.
bool MayShare(const Part& first, const Part& later) {
    return Succeeded(first.result) && Succeeded(later.result) && !first.sink->NeedsWalk() &&
           !first.startKey.empty() && first.startKey == later.startKey &&
           first.sink->EndValue() == later.sink->EndValue();
}

std::vector<Part> DocumentRun::TakeSharing() {
    constexpr std::size_t mostParts = 64;  // made ready ahead of the first result
    // Kept rows are counted as results, which they may not become where events with live
    // enrichments are left out.
    const bool mayDropRows = query_.no_live_enriched_events && remaining_ >= 0;
    std::vector<Part> parts;
    parts.push_back(TakeNext());
    while (!mayDropRows && parts.size() < mostParts && next_ < query_.events.size() &&
           Succeeded(parts.front().result) && !parts.front().sink->NeedsWalk()) {
        Part part = TakeNext();
        if (!MayShare(parts.front(), part)) {
            ahead_ = std::move(part);
            break;
        }
        parts.push_back(std::move(part));
    }
    return parts;
}

HRESULT DocumentRun::RunParts(std::vector<Part>& parts, bool* complete) {
    const Part& first = parts.front();
    if (Failed(first.result))
        return Reported(first.result);
    std::vector<QuerySink*> sinks;
    for (const Part& part : parts) {
        part.sink->SetLimit(remaining_);
        sinks.push_back(part.sink.get());
    }
    std::optional<PartsSink> all;  // none for a part that walks alone
    if (parts.size() > 1)
        all.emplace(sinks);
    HRESULT result =
        Reported(Scan(first, all ? static_cast<IQuerySink*>(&*all) : first.sink.get()));
    for (std::size_t part = 0; Succeeded(result) && part < parts.size(); ++part) {
        if (part > 0)
            result = Reported(FinishPart(parts, part, *all));
        if (Failed(result))
            break;
        if (watch_.HasLeftOut())
            return hr::aborted;
        *complete = Count(parts[part].sink->GetMatchCount());
        if (!*complete)
            break;
    }
    return result;
}

HRESULT DocumentRun::FinishPart(std::vector<Part>& parts, std::size_t part, PartsSink& all) {
    QuerySink* const sink = parts[part].sink.get();
    sink->SetLimit(remaining_);
    return all.MustWalkAlone(part) ? Scan(parts[part], sink)
                                   : all.Deliver(part, handles_.stop, handles_.pause);
}

// The sink stops at the limit without seeing whether more would follow, so only a match beyond it,
// by a later sub-query with nothing left, tells that results were cut off.
bool DocumentRun::Count(std::int32_t matches) {
    if (remaining_ < 0)
        return true;
    if (matches > remaining_)
        return false;
    remaining_ -= matches;
    return true;
}

HRESULT RunDocument(IZelDbImpl& database, const std::string& text, IQueryCallback* callback,
                    const ScanHandles& handles, const EndWatch& watch, bool* complete) {
    Schema::EventQuery query;
    query.FromJson(ParseDocument(Schema::FromUtf8(text)));
    return DocumentRun(database, query, callback, handles, watch).Run(complete);
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
        ToldFailures failures(callback);
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
