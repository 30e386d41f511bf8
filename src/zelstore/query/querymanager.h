#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "common/lock.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/query/backgroundquery.h"

namespace ZEL {

// Queries that nobody has waited for: those that their own callbacks ended, and those of a store
// that was started anew without a shut-down. The next shut-down waits for them, so that no thread
// of the store outlives it.
class LeavingQueries {
public:
    // Forgets those that have left meanwhile.
    void Add(std::shared_ptr<BackgroundQuery> query) EXCLUDES(lock_);
    // Tells all to end and does not wait.
    void CancelAll() EXCLUDES(lock_);
    // A query on whose thread this is called stays for the next call.
    void WaitAll() EXCLUDES(lock_);

private:
    wm::Lock lock_{wm::LockRank::leavingQueries};
    std::vector<std::shared_ptr<BackgroundQuery>> queries_ GUARDED_BY(lock_);
};

// The store's queries that have threads of their own, finished ones too: a query leaves when it is
// cancelled or when the store is shut down. Queries on a caller's thread are not entered here: the
// caller holds their stop event. Operations may be called from any thread, also from callbacks of
// queries: no lock is held while a query's thread is waited for.
class QueryManager {
public:
    // Starts a query that asks `store`. `announce` is told its name before its thread runs, since
    // its callback may ask for it at once. 0x80004004 when new queries are refused.
    HRESULT StartQuery(CountedPtr<IEventStore> store, IStringValue* document,
                       IQueryCallback* callback,
                       const std::function<void(const QueryId&)>& announce) EXCLUDES(lock_);
    // Ends a query, waits for it and frees it. hr::nothingToDo when there is none of that name or
    // somebody else freed it meanwhile. Not waited for on the query's own thread.
    HRESULT CancelQuery(const QueryId& id) EXCLUDES(lock_);
    // All three: hr::nothingToDo when there is no such query.
    HRESULT RequestStop(const QueryId& id) EXCLUDES(lock_);
    HRESULT Pause(const QueryId& id) EXCLUDES(lock_);
    HRESULT Resume(const QueryId& id) EXCLUDES(lock_);

    // Refuses new queries and tells all to end.
    void StopAllQueries() EXCLUDES(lock_);
    // Refuses new queries, waits for all and forgets them. May be called by several threads: each
    // waits for all.
    void WaitAllQueries() EXCLUDES(lock_);
    // Leaves all to the next shut-down, without a wait.
    void AbandonAllQueries() EXCLUDES(lock_);

private:
    using QueryPtr = std::shared_ptr<BackgroundQuery>;

    // Waits; what can't be waited for here is handed on to the leaving ones.
    static void Await(const QueryPtr& query);
    // Null, after a trace, when there is none.
    QueryPtr Find(const QueryId& id) const EXCLUDES(lock_);

    mutable wm::Lock lock_{wm::LockRank::queryManager};
    std::map<QueryId, QueryPtr> queries_ GUARDED_BY(lock_);
    bool accepting_ GUARDED_BY(lock_) = true;
};

// The module's state of queries, guarded by one lock. The manager exists from the end of a
// successful start until the store is shut down. The lock guards the pointer alone: take a
// reference and release the lock before you call the manager for anything that waits.
struct QueryModule {
    wm::Lock queryManagerLock{wm::LockRank::queryManagerPointer};
    std::shared_ptr<QueryManager> queryManager GUARDED_BY(queryManagerLock);
    bool queriesEnabled GUARDED_BY(queryManagerLock) = false;
    LeavingQueries leaving;
};

// The one of the process. Lives until the process ends.
QueryModule& Queries() noexcept;

// A name for a query that no other query of this process has. It is a counter and no random GUID:
// names never leave the process.
QueryId NewQueryId() noexcept;

}  // namespace ZEL
