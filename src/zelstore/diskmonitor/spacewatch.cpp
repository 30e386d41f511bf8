#include "zelstore/diskmonitor/spacewatch.h"

#include <new>

#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/diskmonitor/diskspacemonitorevent.h"

// Two thresholds keep the announcements from flapping: below the lower one subscribers are told to
// stop, from the higher one on to resume, and in between nothing changes.
//
// The state changes after the calls. Whoever subscribes while it is called hears the former state
// first; a second round then tells it the new one. Everybody else who comes at that time waits for
// the end of the calls. A subscriber's first call is made without a lock, since it may end the
// monitor; should an announcement overtake it, the state is told once more. So each subscriber
// hears the latest state last.

namespace ZEL {

namespace {

constexpr std::uint64_t bytesPerMegabyte = 1000000;
constexpr const wchar_t* pathToken = L"%ZELDataStore%";
// Better the system's volume than none: mostly the store is on it.
constexpr const wchar_t* fallbackPath = L"/";

}  // namespace

SpaceWatch::SpaceWatch() {
    const MonitorThresholds thresholds = ReadThresholds();
    stopThreshold_ = thresholds.stopThreshold;
    resumeThreshold_ = ResumeThreshold(thresholds);
}

HRESULT SpaceWatch::SetThresholds(const MonitorThresholds& thresholds) {
    stopThreshold_ = thresholds.stopThreshold;
    resumeThreshold_ = ResumeThreshold(thresholds);
    return WriteThresholds(thresholds);
}

HRESULT SpaceWatch::Subscribe(IMonitorSubscriber* subscriber) {
    DiskState told;
    {
        const wm::Hold hold(deliveryLock_);
        const HRESULT result = subscriptions_.Add(subscriber);
        if (Failed(result))
            return result;
        told = state_;
    }
    for (;;) {
        const auto event = CountedPtr<IMonitorEvent>::Adopt(MakeEvent(told));
        subscriptions_.Notify(event.Get(), subscriber);
        const wm::Hold hold(deliveryLock_);
        if (state_ == told || !subscriptions_.IsSubscribed(subscriber))
            return hr::ok;
        told = state_;
    }
}

void SpaceWatch::Unsubscribe(IMonitorSubscriber* subscriber) {
    const wm::Hold hold(deliveryLock_);
    subscriptions_.Remove(subscriber);
}

void SpaceWatch::Run(std::uint32_t periodMs) {
    std::wstring path;
    if (!wm::ResolvePathVariable(pathToken, path) || path.empty()) {
        wm::Trace(wm::message::volumeNotTold);
        path = fallbackPath;
    }
    const HANDLE stop = stopEvent.Handle();
    while (wm::WaitForAny(1, &stop, periodMs) == wm::waitTimedOut)
        CheckFreeSpace(path);
}

// A volume that can't be asked changes nothing: subscribers go on as they were told last.
void SpaceWatch::CheckFreeSpace(const std::wstring& path) {
    std::uint64_t freeBytes = 0;
    const HRESULT result = wm::FreeSpace().AvailableBytes(path, &freeBytes);
    if (Failed(result)) {
        wm::Trace(wm::message::freeSpaceNotTold, result, wm::ToUtf8Lossy(path));
        wm::ReportError(BareWin32(result));
        return;
    }
    const std::uint64_t freeMb = freeBytes / bytesPerMegabyte;
    const DiskState state = state_;
    if (freeMb < stopThreshold_ && state == DiskState::resume)
        Announce(DiskState::stop);
    else if (freeMb >= resumeThreshold_ && state == DiskState::stop)
        Announce(DiskState::resume);
}

void SpaceWatch::Announce(DiskState state) {
    const auto event = CountedPtr<IMonitorEvent>::Adopt(MakeEvent(state));
    if (!event)
        return;
    const wm::Hold hold(deliveryLock_);
    const std::uint64_t last = subscriptions_.Notify(event.Get(), nullptr);
    state_ = state;
    subscriptions_.NotifyAdded(event.Get(), last);
}

IMonitorEvent* SpaceWatch::MakeEvent(DiskState state) noexcept {
    auto* const event = new (std::nothrow) DiskSpaceMonitorEvent(state);
    if (event == nullptr)
        wm::ReportError(hr::outOfMemory);
    else
        event->AddRef();
    return event;
}

}  // namespace ZEL
