#ifdef WM_CHECK_LOCK_RANKS

#include <cstdio>
#include <cstdlib>

#include "common/lock.h"

namespace wm::detail {

namespace {

struct HeldLock {
    LockRank rank;
    const void* lock;
};

constexpr int mostHeld = 32;
thread_local HeldLock held[mostHeld];
thread_local int heldCount = 0;

[[noreturn]] void AbortOnInversion(const HeldLock& holding, LockRank rank, const void* lock) {
    std::fprintf(stderr, "lock order: rank %d (%p) asked for while rank %d (%p) is held\n",
                 static_cast<int>(rank), lock, static_cast<int>(holding.rank), holding.lock);
    std::abort();
}

}  // namespace

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
