#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "zelstore/database/iquerysink.h"
#include "zelstore/query/querysink.h"

namespace ZEL {

// One walk for several parts of a document, which have the same range. The first part's results go
// out from within the walk, as if it walked alone. What the others match is kept, and delivered
// behind the walk, one part after the other, each as its own walk would have delivered it.
//
// What is kept is bounded: the part that holds most loses what it has, and is to walk by itself.
// So are all the later parts when the first one's callback refuses a batch, since the walk of that
// database then ends.
//
// For one thread, that of the query. The sinks stay the caller's, and must outlive this one.
class PartsSink final : public IQuerySink {
public:
    // Of keys and values.
    static constexpr std::size_t mostKeptBytes = std::size_t{16} << 20;

    // At least two sinks, none of which needs its walk, with the same start, family and end. Each
    // one's limit is the most that it may be asked for behind the walk.
    explicit PartsSink(const std::vector<QuerySink*>& sinks, std::size_t mostBytes = mostKeptBytes);

    // As for the first part alone, but that the walk goes on until no part wants more.
    HRESULT Begin(IZelDbImpl* database) override;
    HRESULT End() override { return parts_.front().sink->End(); }
    HRESULT Attach(leveldb::DB* instance, const leveldb::ReadOptions& options) override;
    RowResult OnRecord(const leveldb::Slice& key, const leveldb::Slice& value,
                       bool* keepGoing) override;
    HRESULT SetEndValue(const std::string& end) override;
    std::int32_t GetMatchCount() override { return parts_.front().sink->GetMatchCount(); }
    bool MayMatch(const std::string& startKey, const FolderFacts& facts) override;

    // Behind the walk, for each part but the first.
    bool MustWalkAlone(std::size_t part) const { return parts_[part].walksAlone; }
    // Delivers what a part has kept, up to its sink's limit, and forgets it. The events are looked
    // at as in a walk. The result is that of a scan.
    HRESULT Deliver(std::size_t part, HANDLE stopEvent, HANDLE pauseEvent);

private:
    struct Row {
        std::size_t database;  // the number of the walk that met it
        std::string key, value;
    };
    struct Part {
        QuerySink* sink;
        std::vector<Row> rows;
        std::size_t bytes = 0;
        bool walksAlone = false;
        bool hasAll = false;  // that its limit lets through
    };

    // For a callback that takes rows as they are met.
    RowResult GiveRow(std::string_view key, std::string_view value, bool* keepGoing);
    // False when the first part's callback has refused what the row made full.
    bool OfferToFirst(std::string_view key, std::string_view value);
    void Keep(Part& part, std::string_view key, std::string_view value);
    void SendToWalkAlone(Part& part);
    bool WantsMore() const noexcept;
    // The rows of one database, from `at` on. Gives the place of the next one's first row.
    std::size_t DeliverDatabase(Part& part, std::size_t at, HANDLE stopEvent, HANDLE pauseEvent,
                                bool* keepGoing);

    const std::size_t mostBytes_;
    const bool givesRows_;
    std::vector<Part> parts_;
    IZelDbImpl* database_ = nullptr;  // not owned
    std::size_t walks_ = 0;           // databases so far
    std::size_t keptBytes_ = 0;
    KeyFields fields_;  // of the row in hand
};

}  // namespace ZEL
