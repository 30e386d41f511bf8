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
    // False when memory runs out.
    bool Create() EXCLUDES(lock_);
    // Both false when there is no event.
    bool Set() EXCLUDES(lock_);
    bool Reset() EXCLUDES(lock_);

    std::uint64_t Count() const EXCLUDES(lock_);
    // Waits until the count is another than `known`, or `cancel`, which may be null, is set: both
    // are success. A cancel that is no event is a failure.
    HRESULT WaitBehind(std::uint64_t known, HANDLE cancel) EXCLUDES(lock_);

private:
    class Registration;
    void PassOnLocked() REQUIRES(lock_);

    mutable wm::Lock lock_{wm::LockRank::leaf};
    wm::EventObject event_;
    std::uint64_t count_ GUARDED_BY(lock_) = 0;
    Registration* waiters_ GUARDED_BY(lock_) = nullptr;
};

}  // namespace ZEL
