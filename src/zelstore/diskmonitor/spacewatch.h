#pragma once

#include <atomic>
#include <string>

#include "common/eventobject.h"
#include "common/lock.h"
#include "zelstore/diskmonitor/monitorsettings.h"
#include "zelstore/diskmonitor/subscriptionmanager.h"

namespace ZEL {

// What the disk monitor's thread works on: the thresholds, the state last announced and the
// subscribers. Shared by the monitor and its thread, since a subscriber may let the monitor go
// while it is called.
//
// Any thread may use it. Announcements and subscriptions exclude each other, but a subscriber may
// subscribe and unsubscribe while it is called.
class SpaceWatch {
public:
    SpaceWatch();
    SpaceWatch(const SpaceWatch&) = delete;
    SpaceWatch& operator=(const SpaceWatch&) = delete;

    // Holds from the next look on, also when the settings can't be written, which is the result.
    HRESULT SetThresholds(const MonitorThresholds& thresholds);

    // Adds it and tells it the present state before it returns, on this thread. 0x80070057 for
    // null, 0x80004005 for one that is there, 0x8007000E.
    HRESULT Subscribe(IMonitorSubscriber* subscriber);
    // Waits for an announcement in progress, unless it is made on this very thread.
    void Unsubscribe(IMonitorSubscriber* subscriber);
    // Removes all without waiting for calls in progress.
    void Clear() { subscriptions_.Remove(nullptr); }

    // Looks at the volume of the data store once a period, first after one period, until stopEvent
    // is set.
    void Run(std::uint32_t periodMs);
    // One look: at most one announcement. A volume that can't be asked is reported.
    void CheckFreeSpace(const std::wstring& path);

    // With one reference; null, after a report, without memory.
    static IMonitorEvent* MakeEvent(DiskState state) noexcept;

    // Made and set by the monitor; Run takes the handle once, so it stays open until the thread has
    // ended.
    wm::EventObject stopEvent;  // auto-reset

private:
    // Without memory for the announcement nobody is told, and the next look tries again.
    void Announce(DiskState state);

    // Read by each look without a lock. Of thresholds that are set meanwhile it may see one new and
    // one old, which the next look puts right.
    std::atomic<std::uint32_t> stopThreshold_;    // megabytes of 1,000,000 bytes
    std::atomic<std::uint32_t> resumeThreshold_;  // likewise
    std::atomic<DiskState> state_{DiskState::resume};
    // Held while subscribers are called.
    wm::RecursiveLock deliveryLock_{wm::LockRank::monitorDelivery};
    SubscriptionManager subscriptions_;
};

}  // namespace ZEL
