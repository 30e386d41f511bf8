#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/lock.h"
#include "common/result.h"

namespace ZEL {

// Numbers the keys that one proxy makes. Nothing of it is saved: a key stays distinct through its
// time or its base key. May be used by any thread.
class KeyCounter {
public:
    // r<receive_time>T<sequence>N: this moment, and a counter that begins again at 1 with each
    // millisecond.
    HRESULT MakeReceiveKey(std::wstring* key) EXCLUDES(keyLock_);
    // The base key as it stands, and a counter that never begins again.
    HRESULT MakeEnrichmentKey(std::wstring_view baseKey, std::wstring* key) EXCLUDES(keyLock_);
    HRESULT MakeFlaggedEnrichmentKey(std::wstring_view baseKey, bool silent, std::wstring* key)
        EXCLUDES(keyLock_);

private:
    void AppendCounterLocked(std::wstring_view baseKey, std::wstring* key) REQUIRES(keyLock_);

    wm::Lock keyLock_{wm::LockRank::keys};
    std::wstring lastReceiveTime_ GUARDED_BY(keyLock_);
    std::uint32_t receiveCounter_ GUARDED_BY(keyLock_) = 0;
    std::uint32_t enrichmentCounter_ GUARDED_BY(keyLock_) = 0;
};

}  // namespace ZEL
