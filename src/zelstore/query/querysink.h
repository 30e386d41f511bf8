#pragma once

#include <leveldb/options.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/countedptr.h"
#include "zelstore/database/iquerysink.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/ieventstore.h"
#include "zelstore/keys/keysplit.h"
#include "zelstore/query/queryfilter.h"
#include "zelstore/schema/event.h"

namespace ZEL {

// How the results of one sub-query are to be made. The document says them for all its sub-queries,
// but for the family, which the sub-query's times tell, and the limit, of which the earlier ones
// have taken their part.
struct QuerySinkOptions {
    std::int32_t family = 0;
    std::int32_t limit = -1;  // most matches; negative means no limit
    bool includeEnrichments = false;
    bool noLiveEnrichedEvents = false;
};

// Turns the rows of one scan into batches of results for a callback. Made for one sub-query, used
// by one scan on the query's thread, then dropped. A row that can't be turned into a result is left
// out; a sink never ends a query with a failure.
//
// The order of calls is IQuerySink's: Begin, for each database Attach and its rows, End. The
// callback is called from within OnRecord and End, under no lock of the store.
class QuerySink final : public IQuerySink {
public:
    static constexpr std::size_t batchSize = 100;

    // Null when the conditions can't be made ready or the family is unknown. Expanding the
    // conditions may take long, and throws GivenUp when the query's watch says so. An end that is
    // not Unicode is traced and means none.
    static std::unique_ptr<QuerySink> Create(const Schema::Event& subQuery,
                                             const QuerySinkOptions& options,
                                             IQueryCallback* callback);

    HRESULT Begin(IZelDbImpl* database) override;
    // Delivers what is left of a batch, and lets go what the walk kept open for enrichments. The
    // result is the callback's.
    HRESULT End() override;
    HRESULT Attach(leveldb::DB* instance, const leveldb::ReadOptions& options) override;
    RowResult OnRecord(const leveldb::Slice& key, const leveldb::Slice& value,
                       bool* keepGoing) override;
    HRESULT SetEndValue(const std::string& end) override;
    // Results that were put in a batch, delivered or not. A row whose delivery failed is not
    // counted.
    std::int32_t GetMatchCount() override { return matchCount_; }
    bool MayMatch(const std::string& startKey, const FolderFacts& facts) override;

    // The parts of OnRecord, for a walk that serves several sinks of one range (partssink.h), which
    // then need not split each key again. False for the key of a row behind the range, where the
    // walk of this database ends; else `*fields` is ready for Wants.
    bool IsInRange(std::string_view key, KeyFields* fields) const;
    // Whether the conditions let a row pass. One whose test fails is lost, and told.
    bool Wants(const KeyFields& fields);
    // Ahead of the walk, for a sink whose keys others test as well.
    void ShareKeys() { filter_.TestEarlyFieldsFirst(); }
    // As OnRecord, for a row that is wanted. It may come behind the walk where NeedsWalk is false.
    RowResult Take(std::string_view key, std::string_view value, bool* keepGoing);
    // Whether results are made of more than a row and what the store has beside it.
    bool NeedsWalk() const noexcept { return !isPrimary_; }
    // Whether the callback takes rows as they are met, each once, whichever part wants it.
    bool GivesRows() const noexcept { return static_cast<bool>(rows_); }
    const std::string& EndValue() const noexcept { return endValue_; }
    // How many matches are still wanted, ahead of the first row that is taken.
    void SetLimit(std::int32_t limit) noexcept { options_.limit = limit; }
    std::int32_t Limit() const noexcept { return options_.limit; }

private:
    QuerySink(const QuerySinkOptions& options, std::string prefix,
              const Schema::FilterMap& conditions, IQueryCallback* callback);

    // What Take does for a row that nothing goes wrong with.
    RowResult Accept(std::string_view key, std::string_view value, bool* keepGoing);
    // By text, as all times in keys. A row without a time is not past the end.
    bool IsPastEnd(const KeyFields& fields) const;
    // The same for a callback that takes rows as they are.
    RowResult GiveRow(std::string_view key, std::string_view value, bool* keepGoing);
    RowResult CountMatch(bool* keepGoing);
    // The enrichments of a row that the callback is to hear of. False when the row is to be
    // dropped.
    bool ReadEnrichments(std::string_view key, std::vector<std::string>* values);
    // The result text of a row: a view of `value` or of `joined_`. None when the record is to be
    // dropped.
    std::optional<std::string_view> MakeResult(std::string_view key, std::string_view value);
    // The same for a primary row: its value, with enrichments where they are wanted.
    std::optional<std::string_view> MakePrimaryResult(std::string_view key, std::string_view value);
    // Fills joined_ with the event that a receive-time row names, from this database or, if it is
    // not there, from any other.
    HRESULT JoinEnrichedEvent(std::string_view value);
    // Nothing when the batch went out, else the row's answer; the batch then stays filled.
    std::optional<RowResult> DeliverFullBatch();
    // The event under a key, from the database in hand or else the oldest that has it.
    HRESULT ReadEvent(const std::string& key, std::string* event);
    // Where a later query goes on; nothing for primary rows, which have no such place.
    HRESULT ExtractCursor(std::wstring* time, std::int32_t* sequence) const;
    HRESULT Deliver(const std::wstring& resumeTime, std::int32_t resumeSequence);

    QuerySinkOptions options_;
    const std::string prefix_;
    const bool isPrimary_;
    const std::string_view timeField_;
    CountedPtr<IQueryCallback> callback_;
    const CountedPtr<IQueryRows> rows_;  // null for most
    CountedPtr<IValueCollection> batch_;
    const std::size_t mostResults_;  // of a batch
    EndWatch* const watch_;          // of the query, or null
    QueryFilter filter_;
    IZelDbImpl* database_ = nullptr;   // not owned
    leveldb::DB* instance_ = nullptr;  // not owned; the database being scanned
    leveldb::ReadOptions readOptions_;
    KeyFields fields_;    // of the row in hand
    std::string joined_;  // a result's text that is not just the row's value
    std::string endValue_;
    std::string lastKey_;  // of the latest receive-time row that was accepted
    std::int32_t matchCount_ = 0;
    QueryId queryId_;
};

}  // namespace ZEL
