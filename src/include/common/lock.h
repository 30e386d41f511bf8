#pragma once

#include <mutex>
#include <shared_mutex>

#include "common/threadannotations.h"
#include "common/wmapi.h"

// The locks of the component: wrappers around the standard ones that carry two kinds of checks.
// Clang's annotations tie data to its lock when the program is built; ranks order the locks when it
// runs. A deadlock needs a cycle, and threads that take locks only in the order of their ranks
// can't make one, whatever they do at the same time. An inversion is found by the first thread that
// takes the wrong path, without a second one that has to meet it.
//
// Ranks are checked in debug builds alone and cost nothing in others.

namespace wm {

// The order in which one thread may take locks: only upwards. A debug build aborts on an inversion
// and names both locks. Two locks of one rank exclude each other: neither may be taken under the
// other. Gaps are left for new ones.
//
// No lock is held while a host is called, save where a rank or a seam says so: a host has locks of
// its own, of which the ranks know nothing.
enum class LockRank : int {
    // Roughly in the order in which a call goes down through the store: first the locks that a
    // host's call meets, last those that are held for a few instructions.
    monitorDelivery = 5,       // the disk monitor's, held while subscribers are called
    state = 10,                // EventStoreImpl::stateLock
    queryManagerPointer = 20,  // queryManagerLock
    queryManager = 30,         // the QueryManager's own lock
    leavingQueries = 32,       // queries that nobody has waited for
    masterDatabase = 35,       // the making of the process's ZelMasterDatabase
    database = 40,             // ZelMasterDatabase::databaseLock
    proxyWrite = 45,           // one batch at a time for each LevelDbInstanceProxy
    proxy = 50,                // LevelDbInstanceProxy::lock
    cursor = 60,               // LevelDbInstance::cursorLock
    folderGate = 65,           // opening and closing of one folder
    queue = 70,                // IncomingQueue::lock
    batch = 75,                // EventBatch::lock
    jobController = 78,        // the job controller's locks
    job = 80,                  // the job manager's locks
    machine = 83,              // the making of the process's table of users' variables
    variables = 84,            // that table
    keys = 85,                 // EventStoreProxy's key state
    errors = 90,               // the table of database errors
    settings = 95,             // the settings file
    leaf = 100,                // nothing is taken under it
};

namespace detail {
#ifdef WM_CHECK_LOCK_RANKS
// Aborts when this thread holds a lock of a rank that is not below `rank`. `again` says that a
// recursive lock may already be held by this thread. It is asked before the lock is taken, so that
// an inversion is named rather than hung on.
WMLIB_API void PushRank(LockRank rank, const void* lock, bool again) noexcept;
// Locks may be released in any order.
WMLIB_API void PopRank(const void* lock) noexcept;
#else
inline void PushRank(LockRank, const void*, bool) noexcept {}
inline void PopRank(const void*) noexcept {}
#endif
}  // namespace detail

// A lock without time limit. Take it through a scoped holder.
//
// Not recursive: taking it again on the same thread aborts in a debug build and hangs in others.
// Holders end with their scope, so that no path out of a routine leaves it taken; what has to
// happen after the release is written after the end of that scope.
class CAPABILITY("lock") Lock {
public:
    explicit Lock(LockRank rank = LockRank::leaf) noexcept : rank_(rank) {}
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Acquire() ACQUIRE() {
        detail::PushRank(rank_, this, false);
        mutex_.lock();
    }
    void Release() RELEASE() {
        mutex_.unlock();
        detail::PopRank(this);
    }

private:
    std::mutex mutex_;
    const LockRank rank_;
};

// The same for places where one thread takes a lock again that it holds. Taking it again passes the
// check of ranks, whatever else is held: the thread can't be made to wait for it.
class CAPABILITY("lock") RecursiveLock {
public:
    explicit RecursiveLock(LockRank rank) noexcept : rank_(rank) {}
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

    void Acquire() ACQUIRE() {
        detail::PushRank(rank_, this, true);
        mutex_.lock();
    }
    void Release() RELEASE() {
        mutex_.unlock();
        detail::PopRank(this);
    }

private:
    std::recursive_mutex mutex_;
    const LockRank rank_;
};

// Many readers or one writer. Not recursive in either way.
//
// A reader can't become a writer: it releases, takes the lock exclusively and looks again at all
// that it had read. Readers are checked for their ranks as well, since a waiting writer makes them
// wait.
class CAPABILITY("lock") ReaderWriterLock {
public:
    explicit ReaderWriterLock(LockRank rank) noexcept : rank_(rank) {}
    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;

    void AcquireExclusive() ACQUIRE() {
        detail::PushRank(rank_, this, false);
        mutex_.lock();
    }
    void ReleaseExclusive() RELEASE() {
        mutex_.unlock();
        detail::PopRank(this);
    }
    void AcquireShared() ACQUIRE_SHARED() {
        detail::PushRank(rank_, this, false);
        mutex_.lock_shared();
    }
    void ReleaseShared() RELEASE_SHARED() {
        mutex_.unlock_shared();
        detail::PopRank(this);
    }

private:
    std::shared_mutex mutex_;
    const LockRank rank_;
};

// Scoped holders. A holder names the lock that it holds to the analysis, so that it knows which
// data may be touched within its scope. It can be neither copied nor moved, and it can't give the
// lock back early: a shorter hold is a block of its own.
template <typename AnyLock>
class SCOPED_CAPABILITY Hold {
public:
    explicit Hold(AnyLock& lock) ACQUIRE(lock) : lock_(lock) { lock_.Acquire(); }
    ~Hold() RELEASE() { lock_.Release(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    AnyLock& lock_;
};

// The holders of a ReaderWriterLock say in their names which way it is held.
class SCOPED_CAPABILITY HoldExclusive {
public:
    explicit HoldExclusive(ReaderWriterLock& lock) ACQUIRE(lock) : lock_(lock) {
        lock_.AcquireExclusive();
    }
    ~HoldExclusive() RELEASE() { lock_.ReleaseExclusive(); }
    HoldExclusive(const HoldExclusive&) = delete;
    HoldExclusive& operator=(const HoldExclusive&) = delete;

private:
    ReaderWriterLock& lock_;
};

// Data may be read under it and not changed, which the analysis checks.
class SCOPED_CAPABILITY HoldShared {
public:
    explicit HoldShared(ReaderWriterLock& lock) ACQUIRE_SHARED(lock) : lock_(lock) {
        lock_.AcquireShared();
    }
    ~HoldShared() RELEASE_GENERIC() { lock_.ReleaseShared(); }
    HoldShared(const HoldShared&) = delete;
    HoldShared& operator=(const HoldShared&) = delete;

private:
    ReaderWriterLock& lock_;
};

}  // namespace wm
