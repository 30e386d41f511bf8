#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "common/eventobject.h"
#include "common/guid.h"
#include "common/result.h"
#include "zelstore/database/layout.h"

namespace ZEL {

class IQuerySink;

// Keys and values of one write, UTF-8, in byte order of the keys.
using RecordBatch = std::map<std::string, std::string>;

// Names one running query.
using QueryId = GUID;

// An open is one for writing; a database that can't be opened to be read counts as a failure to
// read.
enum class DatabaseErrorKind : std::uint32_t { open = 0, read = 1, write = 2 };

// How often one kind of operation failed on a database.
struct DatabaseErrorEntry {
    std::uint32_t operation = 0;  // kind + 1; 0 when another kind failed first
    std::uint32_t count = 0;
    HRESULT lastResult = hr::ok;
};
// One entry for each kind; a count of 0 means that this kind never failed.
struct DatabaseErrorRecord {
    DatabaseErrorEntry entries[3];  // by DatabaseErrorKind
};
// What EnforceSizeLimit tells.
inline constexpr std::uint32_t sizeLimitHonored = 1;     // or will be, once the folders are gone
inline constexpr std::uint32_t sizeLimitNotHonored = 2;  // what may go is not enough

inline constexpr std::uint32_t leastBlockBytes = 1U << 10;
inline constexpr std::uint32_t mostBlockBytes = 1U << 20;

using DatabaseErrorTable = std::map<std::wstring, DatabaseErrorRecord>;  // by the folder's path

// The stored data of the process. May be used by any thread. What fails in one database is counted
// in the table of errors and leaves the others alone. Nothing is thrown.
class IZelDbImpl {
public:
    virtual ~IZelDbImpl() = default;

    // Nothing is left to do behind GetMasterDatabase.
    virtual HRESULT Initialize() = 0;
    // Makes every scan that runs now end at its next check, also one on a database that has left
    // the catalog.
    virtual void AbortScans() = 0;
    // Empties the catalog; it is not read again for the rest of the process.
    virtual void CloseAll() = 0;
    // Writes the whole batch to today's database, as one LevelDB write.
    virtual HRESULT WriteRecords(RecordBatch& batch) = 0;
    // Writes each record to the silent database of its event's date and takes what was handled out
    // of `batch`. A date that fails loses its own records alone; those whose keys have no date stay
    // in `batch`, and the result is then 0x80004005. Otherwise the first failure is told. How many
    // records a failure has cost is reported here (wm::reportLabel::lostBatch).
    virtual HRESULT WriteSilentRecords(RecordBatch& batch) = 0;
    // Walks all event databases, oldest first, from `startKey` on. Always 0 once the sink has
    // begun: failures of single databases are in the table of errors.
    virtual HRESULT Scan(const std::string& startKey, IQuerySink* sink, HANDLE stopEvent,
                         HANDLE pauseEvent) = 0;
    // Deletes whole databases, oldest first, until all files of the store fit in `maxMegabytes` of
    // 0x100000 bytes. The ones being written stay. A folder in use goes behind its last user. On
    // failure nothing is deleted and `*status` keeps its value.
    virtual HRESULT EnforceSizeLimit(std::uint32_t maxMegabytes, std::uint32_t* status) = 0;
    // The value under `key` in the oldest event database that has it.
    virtual HRESULT GetRecord(const std::string& key, std::string* value) = 0;
    // A copy of the table. Both leave the counting to go on meanwhile.
    virtual HRESULT GetDatabaseErrors(DatabaseErrorTable* out) = 0;
    virtual void ClearDatabaseErrors() = 0;
    // The earliest date as YYYYMMDD, empty without any database, and an estimate of all bytes.
    virtual HRESULT GetOldestDate(std::wstring* oldestDate, std::uint64_t* totalBytes) = 0;
    // All values under the prefix `key` in the silent database of the key's date, appended.
    virtual HRESULT GetEnrichments(const QueryId* query, const std::string& key,
                                   std::vector<std::string>* values) = 0;
    // Lets go the database that enrichments were read from for this query. To be called at its end.
    virtual void ReleaseQueryCursor(const QueryId* query) = 0;
    // As GetEnrichments with `collect`; one record that is not silent sets `*hasOther` and empties
    // `values`.
    virtual HRESULT GetSilentEnrichments(const QueryId* query, const std::string& key,
                                         bool* hasOther, bool collect,
                                         std::vector<std::string>* values) = 0;
    // Waits for another process to let today's folder go, a second at most, and no longer than
    // until `isToEnd` says so, which is asked again and again. For the beginning of a flush: the
    // writes themselves wait for no other process.
    virtual void AwaitWriteFolder(const std::function<bool()>& isToEnd) = 0;
    // The size of the blocks that tables are made of from here on, in folders that are opened
    // later; a block is read and compressed as one. 0 means the library's own. 0x80070057 beyond
    // leastBlockBytes to mostBlockBytes.
    virtual HRESULT SetBlockSize(std::uint32_t bytes) = 0;
};

// The process's database, made at the first call that can read the data store directory; null when
// that directory can't be told or listed, or when the database was made for another use.
IZelDbImpl* GetMasterDatabase(StoreUse use = StoreUse::readWrite);

}  // namespace ZEL
