#include "zelstore/diskmonitor/subscriptionmanager.h"

#include <algorithm>

#include "common/boundary.h"
#include "common/trace.h"

// Calls without a lock. A round of calls looks for the next subscriber behind the last number that
// it has called, takes a reference and lets the lock go; so the list may change between two calls,
// nobody is called twice in one round, and who left is not called any more. A round ends at the
// last number that there was at its beginning: a subscriber that comes anew in each of its calls
// would else keep it going for ever.

namespace ZEL {

namespace {

// What two pointers to the same object have in common. Objects that don't answer are all alike.
const void* IdentityOf(IMonitorSubscriber& subscriber) {
    CountedPtr<ITobBase> root;
    if (Failed(subscriber.QueryInterface(iidTobBase, root.ReceiveVoid()))) {
        wm::Trace(wm::message::subscriberWithoutIdentity);
        return nullptr;
    }
    return root.Get();
}

void Call(IMonitorSubscriber& subscriber, IMonitorEvent* event) {
    IgnoreResult(AtBoundary([&] { return subscriber.OnMonitorEvent(event); }),
                 "what a subscriber makes of it is its own concern");
}

}  // namespace

bool SubscriptionManager::HasLocked(const void* identity) const {
    return std::any_of(subscribers_.begin(), subscribers_.end(),
                       [&](const Subscription& s) { return s.identity == identity; });
}

HRESULT SubscriptionManager::Add(IMonitorSubscriber* subscriber) {
    if (subscriber == nullptr)
        return hr::invalidArgument;
    return AtBoundary([&] {
        const void* const identity = IdentityOf(*subscriber);
        Subscription added{0, identity, CountedPtr<IMonitorSubscriber>(subscriber)};
        const wm::HoldExclusive hold(lock_);
        if (HasLocked(identity)) {
            wm::Trace(wm::message::subscribedAlready, hr::fail);
            return hr::fail;
        }
        added.number = lastNumber_ + 1;
        subscribers_.push_back(std::move(added));
        ++lastNumber_;
        return hr::ok;
    });
}

void SubscriptionManager::Remove(IMonitorSubscriber* subscriber) {
    const void* const identity = subscriber != nullptr ? IdentityOf(*subscriber) : nullptr;
    std::vector<Subscription> removed;  // released after the lock
    {
        const wm::HoldExclusive hold(lock_);
        if (subscriber == nullptr) {
            removed.swap(subscribers_);  // needs no memory: destructors come here
            return;
        }
        const auto first =
            std::stable_partition(subscribers_.begin(), subscribers_.end(),
                                  [&](const Subscription& s) { return s.identity != identity; });
        removed.assign(std::make_move_iterator(first), std::make_move_iterator(subscribers_.end()));
        subscribers_.erase(first, subscribers_.end());
    }
    if (removed.empty())
        wm::Trace(wm::message::notSubscribed);
}

bool SubscriptionManager::IsSubscribed(IMonitorSubscriber* subscriber) const {
    if (subscriber == nullptr)
        return false;
    const void* const identity = IdentityOf(*subscriber);
    const wm::HoldShared hold(lock_);
    return HasLocked(identity);
}

CountedPtr<IMonitorSubscriber> SubscriptionManager::NextOne(std::uint64_t* number,
                                                            std::uint64_t last) const {
    const wm::HoldShared hold(lock_);
    const auto next =
        std::find_if(subscribers_.begin(), subscribers_.end(),
                     [&](const Subscription& s) { return s.number > *number && s.number <= last; });
    if (next == subscribers_.end())
        return nullptr;
    *number = next->number;
    return next->subscriber;
}

std::uint64_t SubscriptionManager::Notify(IMonitorEvent* event, IMonitorSubscriber* target) {
    if (target == nullptr)
        return NotifyAdded(event, 0);
    if (event != nullptr)
        Call(*target, event);
    return 0;
}

std::uint64_t SubscriptionManager::NotifyAdded(IMonitorEvent* event, std::uint64_t behind) {
    std::uint64_t last = 0;
    {
        const wm::HoldShared hold(lock_);
        last = lastNumber_;
    }
    if (event == nullptr)
        return last;
    while (const CountedPtr<IMonitorSubscriber> next = NextOne(&behind, last))
        Call(*next, event);
    return last;
}

}  // namespace ZEL
