#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/lock.h"

namespace ZEL {

// Numbers the keys that one proxy makes. Nothing of it is saved: a key stays distinct through its
// time or its base key. May be used by any thread; nothing here fails but for want of memory.
class KeyCounter {
public:
    // The key of a receive-time row: this moment, and a counter that begins again at 1 with each
    // millisecond.
    std::wstring MakeReceiveKey() EXCLUDES(keyLock_);
    // The base key as it stands, and a counter that never begins again while the object lives. The
    // flagged form tells silent from live enrichments.
    std::wstring MakeEnrichmentKey(std::wstring_view baseKey) EXCLUDES(keyLock_);
    std::wstring MakeFlaggedEnrichmentKey(std::wstring_view baseKey, bool silent)
        EXCLUDES(keyLock_);

private:
    wm::Lock keyLock_{wm::LockRank::keys};
    std::string lastReceiveTime_ GUARDED_BY(keyLock_);
    std::uint32_t receiveCounter_ GUARDED_BY(keyLock_) = 0;
    std::uint32_t enrichmentCounter_ GUARDED_BY(keyLock_) = 0;
};

}  // namespace ZEL
