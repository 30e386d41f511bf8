#include "zelstore/query/partssink.h"

#include <leveldb/slice.h>

#include <algorithm>

#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/runningwalk.h"

// A walk costs far more than testing one more filter on a key that is split already, so a question
// for eight kinds of target costs little more than one for one kind.
//
// The order of results is that of the document, part by part, so what later parts match has to
// wait. Kept rows remember which database they came from: where a callback refuses a batch, or a
// stop is seen, the rest of that database's rows is left out and the next one's are offered, as in
// a walk.

namespace ZEL {

PartsSink::PartsSink(const std::vector<QuerySink*>& sinks, std::size_t mostBytes)
    : mostBytes_(mostBytes), givesRows_(sinks.front()->GivesRows() && sinks.front()->Limit() < 0) {
    for (QuerySink* const sink : sinks) {
        parts_.push_back({sink, {}});
        sink->ShareKeys();
    }
}

HRESULT PartsSink::Begin(IZelDbImpl* database) {
    database_ = database;
    return parts_.front().sink->Begin(database);
}

HRESULT PartsSink::Attach(leveldb::DB* instance, const leveldb::ReadOptions& options) {
    ++walks_;
    return parts_.front().sink->Attach(instance, options);
}

HRESULT PartsSink::SetEndValue(const std::string& end) {
    HRESULT result = hr::ok;
    for (const Part& part : parts_)
        if (const HRESULT each = part.sink->SetEndValue(end); Failed(each))
            result = each;
    return result;
}

bool PartsSink::MayMatch(const std::string& startKey, const FolderFacts& facts) {
    return std::any_of(parts_.begin(), parts_.end(), [&](const Part& part) {
        return !part.walksAlone && !part.hasAll && part.sink->MayMatch(startKey, facts);
    });
}

RowResult PartsSink::OnRecord(const leveldb::Slice& key, const leveldb::Slice& value,
                              bool* keepGoing) {
    const std::string_view keyText(key.data(), key.size()), valueText(value.data(), value.size());
    if (!parts_.front().sink->IsInRange(keyText, &fields_))
        return RowResult::endDatabase;
    if (givesRows_)
        return GiveRow(keyText, valueText, keepGoing);
    bool isWanted = false;
    for (Part& part : parts_) {
        if (part.walksAlone || part.hasAll || !part.sink->Wants(fields_))
            continue;
        isWanted = true;
        if (&part != &parts_.front())
            Keep(part, keyText, valueText);
        else if (!OfferToFirst(keyText, valueText))
            return RowResult::abandonDatabase;
    }
    if (!isWanted || WantsMore())
        return RowResult::goOn;
    *keepGoing = false;
    return RowResult::endDatabase;
}

// The first part that wants it gives it, and counts it.
RowResult PartsSink::GiveRow(std::string_view key, std::string_view value, bool* keepGoing) {
    for (const Part& part : parts_)
        if (part.sink->Wants(fields_))
            return parts_.front().sink->Take(key, value, keepGoing);
    return RowResult::goOn;
}

bool PartsSink::OfferToFirst(std::string_view key, std::string_view value) {
    bool goesOn = true;
    const RowResult answer = parts_.front().sink->Take(key, value, &goesOn);
    parts_.front().hasAll = !goesOn;
    if (answer != RowResult::abandonDatabase)
        return true;
    std::for_each(parts_.begin() + 1, parts_.end(), [this](Part& part) { SendToWalkAlone(part); });
    return false;
}

void PartsSink::Keep(Part& part, std::string_view key, std::string_view value) {
    const std::size_t bytes = key.size() + value.size();
    if (!wm::IsUtf8(value))
        return;  // makes no result, and must not count as one
    try {
        part.rows.push_back({walks_, std::string(key), std::string(value)});
    } catch (const std::bad_alloc&) {
        return SendToWalkAlone(part);
    }
    part.bytes += bytes;
    keptBytes_ += bytes;
    // Even a limit of 0 lets one match through.
    const std::int32_t limit = part.sink->Limit();
    part.hasAll = limit >= 0 && part.rows.size() >= static_cast<std::size_t>(std::max(limit, 1));
    if (keptBytes_ > mostBytes_)
        SendToWalkAlone(*std::max_element(
            parts_.begin(), parts_.end(),
            [](const Part& less, const Part& more) { return less.bytes < more.bytes; }));
}

void PartsSink::SendToWalkAlone(Part& part) {
    keptBytes_ -= std::exchange(part.bytes, 0);
    std::vector<Row>().swap(part.rows);
    part.walksAlone = true;
}

// Parts share the document's limit in their order, so those behind the one that uses it up need
// nothing. That one itself lets a match more through, which tells that results were cut off.
bool PartsSink::WantsMore() const noexcept {
    std::int64_t left = parts_.front().sink->Limit();
    const bool isLimited = left >= 0;
    for (const Part& part : parts_) {
        if (part.walksAlone)
            continue;
        const std::int64_t has = &part == &parts_.front()
                                     ? part.sink->GetMatchCount()
                                     : static_cast<std::int64_t>(part.rows.size());
        if (isLimited ? has < std::max<std::int64_t>(left, 1) : !part.hasAll)
            return true;
        if (isLimited && left == 0)
            return false;
        left = std::max<std::int64_t>(left - has, 0);
    }
    return false;
}

HRESULT PartsSink::Deliver(std::size_t number, HANDLE stopEvent, HANDLE pauseEvent) {
    Part& part = parts_[number];
    HRESULT result = part.sink->Begin(database_);
    if (Failed(result))
        return result;
    EndWatch* const watch = EndWatch::OfThread();
    bool keepGoing = true;
    for (std::size_t at = 0; at < part.rows.size() && keepGoing;) {
        if (watch != nullptr && !watch->BeginWalk())
            break;
        at = DeliverDatabase(part, at, stopEvent, pauseEvent, &keepGoing);
    }
    SendToWalkAlone(part);  // what it had is not needed any more
    result = part.sink->End();
    if (Failed(result))
        wm::Trace(wm::message::scanEndFailed, result);
    return hr::ok;
}

std::size_t PartsSink::DeliverDatabase(Part& part, std::size_t at, HANDLE stopEvent,
                                       HANDLE pauseEvent, bool* keepGoing) {
    EndWatch* const watch = EndWatch::OfThread();
    const std::size_t database = part.rows[at].database;
    RunningWalk walk(stopEvent, pauseEvent);
    bool goesOn = walk.IsReady();
    for (; at < part.rows.size() && part.rows[at].database == database; ++at) {
        const Row& row = part.rows[at];
        goesOn = goesOn && walk.MayGoOn() &&
                 part.sink->Take(row.key, row.value, keepGoing) == RowResult::goOn &&
                 (watch == nullptr || !watch->Spend(row.key.size() + row.value.size()));
    }
    return at;
}

}  // namespace ZEL
