#include "zelstore/query/querysink.h"

#include <leveldb/db.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "common/boundary.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/folderfacts.h"
#include "zelstore/database/statusresult.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/receivekey.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/query/querymanager.h"
#include "zelstore/query/resulttext.h"

// From rows to results.
//
// A walk gives each row to the sink, in the order of keys. Behind the row family or the last time
// wanted, the sink ends the walk of that database; the next one has a first row of its own. Rows
// are judged by their keys alone. A value is read only for a row that passes, and copied once, into
// the text that the callback gets: a primary row's value as it stands, perhaps with enrichments
// spliced in before its last brace, or for a row by time of receipt the event that it names.
//
// Results go out a hundred at a time, or fewer where the callback says so, from within the walk,
// and what is left at its end. What fails for one row loses that row alone. When a callback fails,
// the database in hand is left and the batch kept: the next one offers it again, with more behind
// it.

namespace ZEL {

namespace {

// A row that threw is left out, and the walk goes on.
void ReportLostRow(const char* what) noexcept {
    wm::ReportError(hr::unexpected, wm::reportLabel::lostRow, "Exception", what);
}

// Behind a callback as slow as this the stop event is looked at at once.
constexpr std::uint64_t slowCallbackMs = 50;

std::string_view View(const leveldb::Slice& slice) {
    return {slice.data(), slice.size()};
}

std::size_t MostResultsFor(IQueryCallback* callback) {
    CountedPtr<IQueryBatches> face;
    const bool isAsked = callback != nullptr &&
                         Succeeded(callback->QueryInterface(iidQueryBatches, face.ReceiveVoid()));
    const std::size_t most = isAsked ? face->MostResults() : QuerySink::batchSize;
    return most == 0 ? QuerySink::batchSize : std::min(most, QuerySink::batchSize);
}

// Null unless rows are events: others are made of two.
CountedPtr<IQueryRows> RowsFaceOf(IQueryCallback* callback, bool isPrimary) {
    CountedPtr<IQueryRows> face;
    if (callback == nullptr || !isPrimary ||
        Failed(callback->QueryInterface(iidQueryRows, face.ReceiveVoid())))
        return {};
    return face;
}

// What `work` on a row gives, or `otherwise` where it throws.
template <typename Answer, typename Work>
Answer UnlessLost(Answer otherwise, Work&& work) {
    try {
        return work();
    } catch (const GivenUp&) {  // the walk sees it as well
    } catch (const std::exception& error) {
        ReportLostRow(error.what());
    } catch (...) {
        ReportLostRow("Unknown");
    }
    return otherwise;
}

}  // namespace

std::unique_ptr<QuerySink> QuerySink::Create(const Schema::Event& subQuery,
                                             const QuerySinkOptions& options,
                                             IQueryCallback* callback) {
    std::string prefix;
    HRESULT result = FamilyPrefix(options.family, &prefix);
    Schema::FilterMap conditions;
    if (Succeeded(result))
        result = Schema::ExtractKeyFields(subQuery, true, &MachinePaths(), conditions);
    if (Failed(result)) {
        wm::Trace(wm::message::subQueryNotReady, result);
        return nullptr;
    }
    std::unique_ptr<QuerySink> sink(
        new QuerySink(options, std::move(prefix), conditions, callback));
    if (const Schema::DatePair* end = subQuery.end_time.get()) {
        std::string buffer;
        const auto text = Schema::ToUtf8(end->value, buffer);
        if (!text || Failed(sink->SetEndValue(std::string(*text))))
            wm::Trace(wm::message::queryEndNotUnicode);
    }
    return sink;
}

QuerySink::QuerySink(const QuerySinkOptions& options, std::string prefix,
                     const Schema::FilterMap& conditions, IQueryCallback* callback)
    : options_(options),
      prefix_(std::move(prefix)),
      isPrimary_(options.family == familyPrimary),
      timeField_(KeyFieldName(isPrimary_ ? KeyField::beginTime : KeyField::receiveTime)),
      callback_(callback),
      rows_(RowsFaceOf(callback, isPrimary_)),
      mostResults_(MostResultsFor(callback)),
      watch_(EndWatch::OfThread()),
      filter_(conditions, watch_) {
    if (options_.includeEnrichments || options_.noLiveEnrichedEvents)
        queryId_ = NewQueryId();
}

HRESULT QuerySink::SetEndValue(const std::string& end) {
    if (!wm::IsUtf8(end))
        return hr::fail;
    endValue_ = end;
    return hr::ok;
}

HRESULT QuerySink::Begin(IZelDbImpl* database) {
    if (database == nullptr || !callback_) {
        wm::ReportError(hr::invalidArgument);
        return hr::invalidArgument;
    }
    if (batch_)
        batch_->Clear();
    else
        batch_ = CountedPtr<IValueCollection>::Adopt(wm::CreateValueCollection());
    if (!batch_)
        return hr::outOfMemory;
    database_ = database;
    return hr::ok;
}

HRESULT QuerySink::Attach(leveldb::DB* instance, const leveldb::ReadOptions& options) {
    if (instance == nullptr) {
        wm::ReportError(hr::invalidArgument);
        return hr::invalidArgument;
    }
    instance_ = instance;
    readOptions_ = options;
    return hr::ok;
}

RowResult QuerySink::OnRecord(const leveldb::Slice& key, const leveldb::Slice& value,
                              bool* keepGoing) {
    if (!IsInRange(View(key), &fields_))
        return RowResult::endDatabase;
    return Wants(fields_) ? Take(View(key), View(value), keepGoing) : RowResult::goOn;
}

bool QuerySink::IsInRange(std::string_view key, KeyFields* fields) const {
    if (!key.starts_with(prefix_))
        return false;
    SplitKeyFields(key, fields);
    return endValue_.empty() || !IsPastEnd(*fields);
}

bool QuerySink::MayMatch(const std::string& startKey, const FolderFacts& facts) {
    return !isPrimary_ || (facts.MayHoldRows(startKey, endValue_) && filter_.MayMatch(facts));
}

bool QuerySink::Wants(const KeyFields& fields) {
    return UnlessLost(false, [&] { return filter_.MatchesFilter(fields); });
}

RowResult QuerySink::Take(std::string_view key, std::string_view value, bool* keepGoing) {
    return UnlessLost(RowResult::goOn, [&] { return Accept(key, value, keepGoing); });
}

RowResult QuerySink::GiveRow(std::string_view key, std::string_view value, bool* keepGoing) {
    std::vector<std::string> enrichments;
    if (!ReadEnrichments(key, &enrichments) || (watch_ != nullptr && watch_->GivesUp()))
        return RowResult::goOn;
    joined_.clear();
    for (const std::string& each : enrichments)
        joined_.append(joined_.empty() ? "[" : ",").append(each);
    if (!joined_.empty())
        joined_ += ']';
    const HRESULT result = rows_->OnQueryRow({key, value, joined_, {}});
    if (Failed(result))
        return RowResult::abandonDatabase;
    if (result == hr::nothingToDo)
        return RowResult::endDatabase;
    return CountMatch(keepGoing);
}

RowResult QuerySink::CountMatch(bool* keepGoing) {
    ++matchCount_;
    if (options_.limit < 0 || matchCount_ < options_.limit)
        return RowResult::goOn;
    *keepGoing = false;
    return RowResult::endDatabase;
}

RowResult QuerySink::Accept(std::string_view key, std::string_view value, bool* keepGoing) {
    if (rows_)
        return GiveRow(key, value, keepGoing);
    const auto text = MakeResult(key, value);
    if (watch_ != nullptr && watch_->GivesUp())
        return RowResult::goOn;  // something may be missing from the text
    IStringValue* made = nullptr;
    if (!text || !wm::CreateStringValue(*text, &made))
        return RowResult::goOn;
    const auto result = CountedPtr<IStringValue>::Adopt(made);
    if (!result) {
        wm::Trace(wm::message::resultNotMade, hr::outOfMemory);
        return RowResult::abandonDatabase;
    }
    if (!batch_->Add(result.Get())) {
        wm::Trace(wm::message::resultNotAdded, hr::outOfMemory);
        return RowResult::goOn;
    }
    if (batch_->Count() >= mostResults_) {
        if (const auto failed = DeliverFullBatch())
            return *failed;
    }
    // Behind the delivery: a row whose batch was not taken is offered again with the next database,
    // and not counted.
    return CountMatch(keepGoing);
}

std::optional<RowResult> QuerySink::DeliverFullBatch() {
    std::wstring time;
    std::int32_t sequence = 0;
    if (Failed(ExtractCursor(&time, &sequence)))
        return RowResult::goOn;
    const std::uint64_t begin = wm::Clock().TickCount64();
    const HRESULT result = Deliver(time, sequence);
    if (watch_ != nullptr && wm::Clock().TickCount64() - begin >= slowCallbackMs)
        watch_->Spend(EndWatch::stepsPerLook);
    if (Failed(result))
        return RowResult::abandonDatabase;
    batch_->Clear();
    return std::nullopt;
}

bool QuerySink::IsPastEnd(const KeyFields& fields) const {
    std::string_view time;
    const HRESULT result = GetKeyField(fields, timeField_, &time);
    if (Failed(result)) {
        wm::Trace(wm::message::keyWithoutTime, result);
        return false;
    }
    return time > std::string_view(endValue_);
}

std::optional<std::string_view> QuerySink::MakeResult(std::string_view key,
                                                      std::string_view value) {
    if (isPrimary_)
        return MakePrimaryResult(key, value);
    const HRESULT result = JoinEnrichedEvent(value);
    if (Failed(result)) {
        wm::Trace(wm::message::receiveRowWithoutEvent, result, key);
        return std::nullopt;
    }
    lastKey_.assign(key);
    return joined_;
}

std::optional<std::string_view> QuerySink::MakePrimaryResult(std::string_view key,
                                                             std::string_view value) {
    std::vector<std::string> values;
    if (!ReadEnrichments(key, &values))
        return std::nullopt;
    if (values.empty())
        return value;
    try {
        joined_.assign(value);
        AppendEnrichments(joined_, values);
        return joined_;
    } catch (const std::bad_alloc&) {
        wm::Trace(wm::message::enrichmentsNotJoined, hr::outOfMemory);
        return value;  // the event itself needs no more memory
    }
}

bool QuerySink::ReadEnrichments(std::string_view key, std::vector<std::string>* values) {
    if (!options_.includeEnrichments && !options_.noLiveEnrichedEvents)
        return true;
    HRESULT result = hr::ok;
    if (options_.noLiveEnrichedEvents) {
        bool hasOther = false;
        result = database_->GetSilentEnrichments(&queryId_, std::string(key), &hasOther,
                                                 options_.includeEnrichments, values);
        if (Failed(result))
            values->clear();
        else if (hasOther)
            return false;
    } else {
        result = database_->GetEnrichments(&queryId_, std::string(key), values);
    }
    if (Failed(result))
        wm::Trace(wm::message::noEnrichments, result);
    return true;
}

HRESULT QuerySink::ReadEvent(const std::string& key, std::string* event) {
    // Events that came one after the other mostly stand beside each other, in blocks that would
    // else be unpacked for each of them.
    leveldb::ReadOptions options = readOptions_;
    options.fill_cache = true;
    // Mostly the event stands where its row does: both were written on the same day.
    const leveldb::Status status = instance_->Get(options, key, event);
    if (status.ok())
        return hr::ok;
    if (status.IsNotFound())
        return database_ != nullptr ? database_->GetRecord(key, event) : hr::notFound;
    const HRESULT result = FromStatus(status);
    wm::ReportError(result, wm::reportLabel::damagedData, "Status", status.ToString().c_str());
    return result;
}

HRESULT QuerySink::JoinEnrichedEvent(std::string_view value) {
    if (instance_ == nullptr)
        return hr::noInterface;
    ReceiveRow row;
    HRESULT result = ParseReceiveRow(value, &row);
    if (Failed(result))
        return result;
    joined_.clear();
    result = ReadEvent(row.eventKey, &joined_);
    if (Failed(result))
        return result;
    // With nothing left to search in, a search succeeds and finds nothing.
    if (joined_.empty())
        return hr::notFound;
    SpliceEnrichedData(joined_, row.enrichment);
    return wm::IsUtf8(joined_) ? hr::ok : hr::outOfMemory;
}

HRESULT QuerySink::ExtractCursor(std::wstring* time, std::int32_t* sequence) const {
    if (isPrimary_)
        return hr::ok;
    const auto place = FindReceivePlace(lastKey_);
    if (!place) {
        wm::Trace(wm::message::noResumePosition, hr::fail, lastKey_);
        return hr::fail;
    }
    if (!wm::ToWide(place->time, *time))
        wm::Trace(wm::message::resumeTimeNotUtf8);
    *sequence = static_cast<std::int32_t>(place->sequence);
    return hr::ok;
}

HRESULT QuerySink::Deliver(const std::wstring& resumeTime, std::int32_t resumeSequence) {
    const auto time = CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(resumeTime.c_str()));
    const HRESULT result =
        callback_->OnQueryResults(hr::ok, batch_.Get(), false, false, time.Get(), resumeSequence);
    if (Failed(result))
        wm::Trace(wm::message::receiverFailed, result);
    return result;
}

HRESULT QuerySink::End() {
    if ((options_.includeEnrichments || options_.noLiveEnrichedEvents) && database_ != nullptr)
        database_->ReleaseQueryCursor(&queryId_);
    if (!batch_ || batch_->Count() == 0)
        return hr::ok;
    std::wstring time;
    std::int32_t sequence = 0;
    IgnoreResult(ExtractCursor(&time, &sequence), "results go out without a resume position");
    return AtBoundary([&] { return Deliver(time, sequence); });
}

}  // namespace ZEL
