#pragma once

#include <memory>

#include "common/lock.h"

namespace ZEL {

// The store's running queries that have threads of their own. Queries on a caller's thread are not
// entered here: the caller holds their stop event.
class QueryManager {
public:
    // Refuses new queries from now on.
    void RefuseNew() EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        accepting_ = false;
    }
    bool Accepting() const EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        return accepting_;
    }

private:
    mutable wm::Lock lock_{wm::LockRank::queryManager};
    bool accepting_ GUARDED_BY(lock_) = true;
};

// The module's state of queries, guarded by one lock. The manager exists from the end of a
// successful start until the store is shut down.
struct QueryModule {
    wm::Lock queryManagerLock{wm::LockRank::queryManagerPointer};
    std::shared_ptr<QueryManager> queryManager GUARDED_BY(queryManagerLock);
    bool queriesEnabled GUARDED_BY(queryManagerLock) = false;
};

QueryModule& Queries() noexcept;

}  // namespace ZEL
