#include "zelstore/diskmonitor/diskspacemonitor.h"

#include "common/boundary.h"
#include "common/errorreport.h"
#include "zelstore/diskmonitor/spacewatch.h"

// The monitor's thread and its end.
//
// The thread works on the watch alone, of which it owns a share. A subscriber may drop the last
// reference to the monitor while it is called, that is, on the monitor's own thread: the destructor
// then can't wait, the monitor goes, and the thread ends behind the call without touching it. On
// every other thread the destructor waits, so that no subscriber is called after it.
//
// Subscribers go last: those that are being called may still come back to unsubscribe.

namespace ZEL {

DiskSpaceMonitor::DiskSpaceMonitor(std::uint32_t periodMs)
    : periodMs_(periodMs), watch_(std::make_shared<SpaceWatch>()) {}

DiskSpaceMonitor::~DiskSpaceMonitor() {
    monitorThread_.RequestStop();
    watch_->stopEvent.Set();
    monitorThread_.Wait();
    watch_->Clear();
}

TobResult DiskSpaceMonitor::QueryInterface(const GUID& iid, void** out) {
    IMonitorRegistration* const registration = this;
    IMonitorConfiguration* const configuration = this;
    IMonitorLifetime* const lifetime = this;
    return Answer(iid, out,
                  {{iidMonitorRegistration, registration},
                   {iidMonitorConfiguration, configuration},
                   {iidMonitorLifetime, lifetime}});
}

HRESULT DiskSpaceMonitor::Subscribe(IMonitorSubscriber* subscriber) {
    return AtBoundary([&] { return watch_->Subscribe(subscriber); });
}

HRESULT DiskSpaceMonitor::Unsubscribe(IMonitorSubscriber* subscriber) {
    return AtBoundary([&] {
        watch_->Unsubscribe(subscriber);
        return hr::ok;
    });
}

HRESULT DiskSpaceMonitor::SetThresholds(std::uint32_t stopThreshold,
                                        std::uint32_t resumePercentage) {
    return AtBoundary([&] { return watch_->SetThresholds({stopThreshold, resumePercentage}); });
}

HRESULT DiskSpaceMonitor::Start() {
    return AtBoundary([this] {
        const wm::Hold hold(startLock_);
        return StartLocked();
    });
}

HRESULT DiskSpaceMonitor::StartLocked() {
    if (!watch_->stopEvent.Exists() && !watch_->stopEvent.Create(wm::EventReset::automatic)) {
        wm::ReportError(hr::outOfMemory);
        return hr::outOfMemory;
    }
    if (monitorThread_.IsRunning())
        return hr::ok;
    // The thread has no part in the monitor itself, which may go first.
    const bool started = monitorThread_.Start([watch = watch_, periodMs = periodMs_] {
        watch->Run(periodMs);
        return hr::ok;
    });
    if (!started) {
        watch_->stopEvent.Close();
        wm::ReportError(BareWin32(hr::threadNotStarted));
        return hr::threadNotStarted;
    }
    monitorThread_.SetName("ZEL Disk Monitor");
    return hr::ok;
}

// The event is what the thread waits for; the flag alone wakes nobody.
HRESULT DiskSpaceMonitor::Stop() {
    monitorThread_.RequestStop();
    watch_->stopEvent.Set();
    return hr::ok;
}

HRESULT DiskSpaceMonitor::Wait() {
    monitorThread_.Wait();
    return hr::ok;
}

void DiskSpaceMonitor::Run() {
    watch_->Run(periodMs_);
}

IMonitorEvent* DiskSpaceMonitor::MakeEvent(DiskState state) {
    return SpaceWatch::MakeEvent(state);
}

void DiskSpaceMonitor::CheckFreeSpace(const std::wstring& path) {
    watch_->CheckFreeSpace(path);
}

}  // namespace ZEL
