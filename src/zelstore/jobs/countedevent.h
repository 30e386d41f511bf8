#pragma once

#include <cstdint>

#include "common/eventobject.h"
#include "common/lock.h"
#include "common/result.h"

namespace ZEL {

// An auto-reset event that knows how often it was set. One setting of such an event wakes one
// waiter and may be gone again before that one looks; here every waiter waits for a setting behind
// the ones that it knew of, so that each hears of it, whoever else waits, sets or resets meanwhile.
// For any thread.
class CountedEvent {
public:
    // False when memory runs out. Call it once, before any other thread has the object: a wait
    // takes the handle without the lock.
    bool Create() EXCLUDES(lock_);
    // Both false when there is no event. A Set counts also where there is no event; a Reset takes
    // nothing from a waiter who is owed a setting, and leaves the count alone.
    bool Set() EXCLUDES(lock_);
    bool Reset() EXCLUDES(lock_);

    // How often it was set. Take it before whatever is to lead to the setting that is waited for:
    // what is counted by then does not end the wait.
    std::uint64_t Count() const EXCLUDES(lock_);
    // Waits until the count is another than `known`, or `cancel`, which may be null, is set: both
    // are success. A cancel that is no event is a failure. Takes no memory. The lock is not held
    // while the thread sleeps.
    HRESULT WaitBehind(std::uint64_t known, HANDLE cancel) EXCLUDES(lock_);

private:
    // One waiter, on the stack of its thread; the destructor passes on what another waiter is owed.
    class Registration;
    // Whether some waiter's count has been passed; PassOnLocked then sets the event again.
    bool IsOwedLocked() const REQUIRES(lock_);
    void PassOnLocked() REQUIRES(lock_);

    mutable wm::Lock lock_{wm::LockRank::leaf};
    wm::EventObject event_;
    std::uint64_t count_ GUARDED_BY(lock_) = 0;
    // The list's head. Who is in it outlives its place there, so nothing is owned.
    Registration* waiters_ GUARDED_BY(lock_) = nullptr;
};

}  // namespace ZEL
