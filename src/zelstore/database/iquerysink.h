#pragma once

#include <cstdint>
#include <string>

#include "common/itobbaseimpl.h"
#include "common/result.h"

namespace leveldb {
class DB;
class Slice;
struct ReadOptions;
}  // namespace leveldb

namespace ZEL {

class FolderFacts;
class IZelDbImpl;

// What a sink answers to a row. endDatabase is success: there is no further row for the sink in
// this database. abandonDatabase is a failure to read, which is counted.
enum class RowResult : int { goOn = 0, endDatabase = 1, abandonDatabase = 2 };

// Receives the rows of one scan, on the scan's thread. The scan owns nothing of it and calls under
// no lock of the store; what a sink throws is caught and ends the walk in hand.
class IQuerySink : public vodLib::NonCopyable {
public:
    virtual ~IQuerySink() = default;

    // Once, before the first database; a failure ends the scan.
    virtual HRESULT Begin(IZelDbImpl* database) = 0;
    // Once, behind the last database.
    virtual HRESULT End() = 0;
    // Before the first row of each database. The sink may read `instance` with `options`, which
    // carry the scan's snapshot, until the next Attach or End.
    virtual HRESULT Attach(leveldb::DB* instance, const leveldb::ReadOptions& options) = 0;
    // One row; views are valid during the call. Clearing `*keepGoing` keeps further databases out.
    virtual RowResult OnRecord(const leveldb::Slice& key, const leveldb::Slice& value,
                               bool* keepGoing) = 0;
    // Last time wanted (UTC text); empty means no end.
    virtual HRESULT SetEndValue(const std::string& end) = 0;
    // How many rows it has accepted so far.
    virtual std::int32_t GetMatchCount() = 0;
    // Whether a closed database of which this is known may hold a row for the sink, at or behind
    // the scan's start. Asked ahead of the database's turn; one without is not opened.
    virtual bool MayMatch(const std::string&, const FolderFacts&) { return true; }
};

}  // namespace ZEL
