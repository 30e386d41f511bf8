#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/lock.h"
#include "common/utctime.h"

namespace ZEL {

// Numbers the keys that one proxy makes. Nothing of it is saved: a key stays distinct through its
// time or its base key. May be used by any thread; nothing here fails but for want of memory.
class KeyCounter {
public:
    // The key of a receive-time row: this moment, and a counter that begins again at 1 with each
    // millisecond. Keys of one object ascend as long as the clock is not set back. The result is of
    // a fixed form and has ASCII alone.
    std::string MakeReceiveKey() EXCLUDES(keyLock_);
    // The base key as it stands, and a counter that never begins again while the object lives. The
    // flagged form tells silent from live enrichments. `baseKey` is taken as it stands: a text that
    // is no key gives one that belongs to no event. The number starts at 1 for each object, so two
    // proxies that enrich the same event give equal keys, and the record that is written last
    // stays.
    std::wstring MakeEnrichmentKey(std::wstring_view baseKey) EXCLUDES(keyLock_);
    std::wstring MakeFlaggedEnrichmentKey(std::wstring_view baseKey, bool silent)
        EXCLUDES(keyLock_);

private:
    // Makes time and number one step: two threads must not both find a millisecond new.
    wm::Lock keyLock_{wm::LockRank::keys};
    wm::SystemTime lastReceiveTime_ GUARDED_BY(keyLock_);
    std::string lastReceiveText_ GUARDED_BY(keyLock_);  // of that time; empty ahead of the first
    std::uint32_t receiveCounter_ GUARDED_BY(keyLock_) = 0;
    std::uint32_t enrichmentCounter_ GUARDED_BY(keyLock_) = 0;
};

}  // namespace ZEL
