#pragma once

#include "common/countedptr.h"
#include "common/lock.h"

namespace ZEL {

// Holds one interface of the host that may be obtained once, shared by threads. Readers get a
// reference of their own, so that no call on the interface runs under the lock. After a drop
// nothing is obtained any more: who comes late must not make a new interface behind the back of a
// shut-down.
template <typename T>
class LazyInterface {
public:
    // Null when there is none (any more).
    CountedPtr<T> Get() const EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        return pointer_;
    }
    // For an interface that was found in another way. The former one is released after the lock.
    void Store(CountedPtr<T> pointer) EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        std::swap(pointer_, pointer);
    }
    // Drops what is held; nothing is obtained any more.
    void Drop() EXCLUDES(lock_) {
        CountedPtr<T> former;
        const wm::Hold hold(lock_);
        std::swap(pointer_, former);
        fresh_ = false;
    }
    // Runs `obtain(T**)` unless it was obtained or dropped before. A failure may be tried again.
    // `obtain` runs under the lock, so that two threads do not both make one; it must not come back
    // here.
    template <typename Obtain>
    HRESULT ObtainOnce(Obtain&& obtain) EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        if (pointer_ || !fresh_)
            return hr::ok;
        const HRESULT result = obtain(pointer_.Receive());
        if (pointer_)
            fresh_ = false;
        return result;
    }

private:
    mutable wm::Lock lock_{wm::LockRank::jobController};
    bool fresh_ GUARDED_BY(lock_) = true;
    CountedPtr<T> pointer_ GUARDED_BY(lock_);
};

}  // namespace ZEL
