#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/lock.h"
#include "zelstore/database/errortable.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/database/layout.h"

namespace ZEL {

class LevelDbInstance;
class LevelDbInstanceProxy;

// The catalog of the store's databases, and all that is done with more than one of them: which one
// a write goes to, scans and lookups over all, the databases that are worth keeping open, and the
// count of what failed.
//
// May be used by any thread. Rows are written and read outside databaseLock, on a copy of the
// catalog where several databases are concerned; only a new or next database is opened under it.
// What fails in one database leaves the others alone. A database leaves the catalog only when a
// write tells that its files are corrupt or its device has failed, or when the size limit asks for
// its room.
class ZelMasterDatabase final : public IZelDbImpl {
public:
    explicit ZelMasterDatabase(StoreUse use = StoreUse::readWrite);
    ~ZelMasterDatabase() override;
    ZelMasterDatabase(const ZelMasterDatabase&) = delete;
    ZelMasterDatabase& operator=(const ZelMasterDatabase&) = delete;

    // Fills the catalog from the folders there are. hr::nothingToDo without a data store directory.
    // To be called once, before any other thread has the object. Takes away what killed processes
    // have left there, unless the store is read alone.
    HRESULT LoadExistingDatabases();
    StoreUse Use() const noexcept { return use_; }

    HRESULT Initialize() override { return hr::ok; }
    void AbortScans() override;
    void CloseAll() override;
    void AwaitWriteFolder(const std::function<bool()>& isToEnd) override;
    HRESULT WriteRecords(RecordBatch& batch) override;
    HRESULT WriteSilentRecords(RecordBatch& batch) override;
    HRESULT Scan(const std::string& startKey, IQuerySink* sink, HANDLE stopEvent,
                 HANDLE pauseEvent) override;
    HRESULT EnforceSizeLimit(std::uint32_t maxMegabytes, std::uint32_t* status) override;
    HRESULT GetRecord(const std::string& key, std::string* value) override;
    HRESULT GetDatabaseErrors(DatabaseErrorTable* out) override;
    void ClearDatabaseErrors() override { errorTable_.Clear(); }
    HRESULT GetOldestDate(std::wstring* oldestDate, std::uint64_t* totalBytes) override;
    HRESULT GetEnrichments(const QueryId* query, const std::string& key,
                           std::vector<std::string>* values) override;
    void ReleaseQueryCursor(const QueryId* query) override;
    HRESULT SetBlockSize(std::uint32_t bytes) override;
    HRESULT GetSilentEnrichments(const QueryId* query, const std::string& key, bool* hasOther,
                                 bool collect, std::vector<std::string>* values) override;

private:
    using ProxyPtr = std::shared_ptr<LevelDbInstanceProxy>;
    // By the folder's full path, oldest first. No entry is null.
    using Catalog = std::map<std::wstring, ProxyPtr, PathLess>;

    // For walks over all databases, which must not hold the lock while they read.
    HRESULT CopyDatabaseMap(Catalog* copy);
    // The same in their order, without the silent ones.
    HRESULT CopyEventDatabases(std::vector<ProxyPtr>* out);
    // A count that can't be kept for want of memory is lost, and nothing else.
    void RecordDatabaseError(const std::wstring& path, DatabaseErrorKind kind,
                             HRESULT result) noexcept;

    // The database for today's writes, or for silent enrichments of `date`. What is given by
    // GetWriteDatabase and ChooseSilentDatabase is marked as being written.
    ProxyPtr NextWriteDatabase();
    HRESULT GetWriteDatabase(ProxyPtr* proxy);
    HRESULT GetWriteDatabaseLocked(const std::wstring& today, ProxyPtr* proxy)
        REQUIRES(databaseLock_);
    HRESULT GetSilentDatabaseLocked(const std::wstring& date, IfMissing ifMissing, ProxyPtr* proxy)
        REQUIRES(databaseLock_);
    // The newest event database of a date, or the silent one; null when there is none.
    ProxyPtr FindLocked(const std::wstring& date, bool silent) REQUIRES(databaseLock_);
    // Lets the present write database go, with its tables counted for the last time.
    void RetireWriteDatabaseLocked() REQUIRES(databaseLock_);
    HRESULT ReuseWriteDatabaseLocked(const ProxyPtr& proxy) REQUIRES(databaseLock_);
    HRESULT CreateDatabaseLocked(std::wstring path, ProxyPtr* proxy) REQUIRES(databaseLock_);

    // Writes to the database that `choose` gives, and hands it to `keep` when that went well.
    template <typename Choose, typename Keep>
    HRESULT WriteToChosen(const RecordBatch& batch, Choose&& choose, Keep&& keep);

    // Counts what was written, also where something else fails.
    HRESULT WriteSilentGroups(RecordBatch& batch, std::size_t* written);
    // Moves the records of the first date there is from `batch` to `group`, which stays empty when
    // no key has one.
    static void TakeSilentGroup(RecordBatch& batch, std::string* groupDate, RecordBatch* group);
    HRESULT WriteSilentGroup(const std::string& date, const RecordBatch& group);
    HRESULT ChooseSilentDatabase(const std::wstring& date, ProxyPtr* proxy);
    void KeepSilentDatabase(const ProxyPtr& proxy);
    void OnWriteFailure(const ProxyPtr& proxy, HRESULT result);
    void GiveUp(const ProxyPtr& proxy);

    // Whether the size limit must leave it alone: it takes writes, or is about to.
    bool IsProtectedLocked(const ProxyPtr& proxy) const REQUIRES_SHARED(databaseLock_);
    HRESULT GetDeletionCandidates(Catalog* candidates);
    // The oldest candidates that free `excessBytes` together. `victims` is empty on failure.
    static HRESULT SelectVictims(const Catalog& candidates, std::uint64_t excessBytes,
                                 std::vector<ProxyPtr>* victims, std::uint32_t* status);
    void Delete(const ProxyPtr& victim);

    // The silent database of the key's date, kept open for the query until it asks for another
    // date.
    HRESULT GetQueryDatabase(const QueryId* query, const std::string& key, ProxyPtr* proxy);
    // Counts what fails, which the query's result doesn't tell, once for each query and database.
    template <typename Read>
    HRESULT ReadSilent(const QueryId* query, const std::string& key, Read&& read);
    // Remembers the failure, too.
    bool IsFirstFailure(const QueryId& query, const std::wstring& path);

    const StoreUse use_;
    std::wstring dataStoreDirectory_;  // set by LoadExistingDatabases
    wm::ReaderWriterLock databaseLock_{wm::LockRank::database};
    Catalog databases_ GUARDED_BY(databaseLock_);
    ProxyPtr writeDatabase_ GUARDED_BY(databaseLock_);
    ProxyPtr silentDatabase_ GUARDED_BY(databaseLock_);  // took the last silent batch
    ErrorTable errorTable_;
    // The silent database that a running query keeps open. The hold alone would not do: a writer
    // that goes on to another date ends one hold, and may have had none of its own.
    struct QueryCursor {
        ProxyPtr proxy;  // null when the last date has no database
        std::shared_ptr<LevelDbInstance> open;
        bool isHeld = false;
        std::set<std::wstring> failed;  // paths of databases whose failure has been counted
    };
    std::map<QueryId, QueryCursor> queryCursors_ GUARDED_BY(databaseLock_);
};

}  // namespace ZEL
