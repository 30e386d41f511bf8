#pragma once

#include <cstdint>
#include <vector>

#include "common/countedptr.h"
#include "common/itobbaseimpl.h"
#include "common/lock.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

namespace ZEL {

// The monitor's list of subscribers, in the order of their subscription. May be used by any thread,
// and by a subscriber while it is called: no lock is held then. One that is removed meanwhile is
// not called any more; one that comes meanwhile is left to NotifyAdded. What a subscriber throws is
// traced and stops nothing.
class SubscriptionManager : public vodLib::NonCopyable {
public:
    virtual ~SubscriptionManager() = default;

    // 0x80070057 for null, 0x80004005 for one that is there, 0x8007000E without memory.
    HRESULT Add(IMonitorSubscriber* subscriber) EXCLUDES(lock_);
    // Null removes all.
    void Remove(IMonitorSubscriber* subscriber) EXCLUDES(lock_);
    // False for null.
    bool IsSubscribed(IMonitorSubscriber* subscriber) const EXCLUDES(lock_);

    // Calls `target` alone, or all when it is null. Gives the number that the last subscription had
    // when the calls began. A null event does nothing.
    std::uint64_t Notify(IMonitorEvent* event, IMonitorSubscriber* target) EXCLUDES(lock_);
    // Calls those who subscribed after the subscription with that number.
    std::uint64_t NotifyAdded(IMonitorEvent* event, std::uint64_t behind) EXCLUDES(lock_);

private:
    // The number ascends with each subscription and is never used again, so that rounds of calls go
    // on behind it whatever comes and goes. The identity tells subscribers apart.
    struct Subscription {
        std::uint64_t number;
        const void* identity;
        CountedPtr<IMonitorSubscriber> subscriber;
    };

    // Identities are taken before the lock: they are answers of foreign code.
    bool HasLocked(const void* identity) const REQUIRES_SHARED(lock_);
    // The first one behind `*number`, up to `last`; null when there is none.
    CountedPtr<IMonitorSubscriber> NextOne(std::uint64_t* number, std::uint64_t last) const;

    mutable wm::ReaderWriterLock lock_{wm::LockRank::leaf};
    std::vector<Subscription> subscribers_ GUARDED_BY(lock_);
    // Of the latest subscription; 0 before the first.
    std::uint64_t lastNumber_ GUARDED_BY(lock_) = 0;
};

}  // namespace ZEL
