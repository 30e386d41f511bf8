#pragma once

#include <memory>
#include <string>

#include "common/itobbaseimpl.h"
#include "common/lock.h"
#include "common/workerthread.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

namespace ZEL {

class SpaceWatch;

// Watches the free space of the data store's volume and tells its subscribers to stop when it falls
// below a threshold, and to resume when it has climbed back by a margin. It decides and announces;
// what is done about it is the subscribers' concern.
//
// Any thread may use it. The last Release ends the thread and waits for it; from within a
// subscriber's call it doesn't wait, and the thread ends after that call.
class DiskSpaceMonitor final
    : public TobObject<IMonitorRegistration, IMonitorConfiguration, IMonitorLifetime> {
public:
    // What every host gets; other periods are for tests.
    static constexpr std::uint32_t pollingPeriodMs = 60000;

    // Reads the thresholds from the settings; no thread runs yet.
    explicit DiskSpaceMonitor(std::uint32_t periodMs = pollingPeriodMs);
    ~DiskSpaceMonitor() override;

    // The thread's body, and an announcement with one reference, or null. Both stand in the class's
    // own table, behind the operations on the owner.
    virtual void Run();
    virtual IMonitorEvent* MakeEvent(DiskState state);

    TobResult QueryInterface(const GUID& iid, void** out) override;
    // This one and the next five as the interfaces tell them.
    HRESULT Subscribe(IMonitorSubscriber* subscriber) override;
    HRESULT Unsubscribe(IMonitorSubscriber* subscriber) override;
    HRESULT SetThresholds(std::uint32_t stopThreshold, std::uint32_t resumePercentage) override;
    HRESULT Start() override;
    HRESULT Stop() override;
    HRESULT Wait() override;

    // One look at the volume of `path`. It is announced on the calling thread.
    void CheckFreeSpace(const std::wstring& path);

private:
    HRESULT StartLocked() REQUIRES(startLock_);

    const std::uint32_t periodMs_;
    // Shared with the thread, which may outlive the monitor by the rest of one call.
    const std::shared_ptr<SpaceWatch> watch_;
    // Two threads that start at the same time must not both make the event or the thread.
    wm::Lock startLock_;
    wm::WorkerThread monitorThread_;
};

}  // namespace ZEL
