#ifdef WM_CHECK_LOCK_RANKS

#include <cstdio>
#include <cstdlib>

#include "common/lock.h"

// The check of lock ranks, for debug builds. Each thread keeps the locks that it holds in an array
// of its own, so that the check takes no lock and no memory, and is itself no part of the order
// that it checks. It aborts rather than reports: an inversion is a mistake of the program, and the
// stack of this moment is what tells where.

namespace wm::detail {

namespace {

struct HeldLock {
    LockRank rank;
    const void* lock;
};

// Far above what a path takes; more would be a leak of a holder.
constexpr int mostHeld = 32;
thread_local HeldLock held[mostHeld];
thread_local int heldCount = 0;

[[noreturn]] void AbortOnInversion(const HeldLock& holding, LockRank rank, const void* lock) {
    std::fprintf(stderr, "lock order: rank %d (%p) asked for while rank %d (%p) is held\n",
                 static_cast<int>(rank), lock, static_cast<int>(holding.rank), holding.lock);
    std::abort();
}

}  // namespace

// A recursive lock that this thread holds already is pushed once more without a check, so that each
// release takes one entry away.
void PushRank(LockRank rank, const void* lock, bool again) noexcept {
    bool alreadyMine = false;
    for (int i = 0; i < heldCount; ++i)
        alreadyMine = alreadyMine || (again && held[i].lock == lock);
    for (int i = 0; i < heldCount && !alreadyMine; ++i)
        if (held[i].rank >= rank)
            AbortOnInversion(held[i], rank, lock);
    if (heldCount == mostHeld) {
        std::fprintf(stderr, "lock order: one thread holds more than %d locks\n", mostHeld);
        std::abort();
    }
    held[heldCount++] = {rank, lock};
}

// The latest entry of the lock: holders mostly end in the reverse of their order, but need not.
void PopRank(const void* lock) noexcept {
    for (int i = heldCount - 1; i >= 0; --i) {
        if (held[i].lock != lock)
            continue;
        for (int j = i; j + 1 < heldCount; ++j)
            held[j] = held[j + 1];
        --heldCount;
        return;
    }
}

}  // namespace wm::detail

#endif
