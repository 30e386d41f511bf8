#pragma once

#include "common/itobbaseimpl.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

namespace ZEL {

// Gives a host the one monitor of the process without the host having to keep it. The monitor is
// the module's: managers come and go, and it runs until one of them stops it.
class DiskSpaceMonitorManager final
    : public TobObjectOf<IDiskSpaceMonitorManager, iidDiskSpaceMonitorManager> {
public:
    // For any thread; no call of a monitor is made under a lock of this class.
    HRESULT StartMonitor() override;
    HRESULT StopMonitor() override;
    HRESULT GetRegistration(IMonitorRegistration** out) override;
    HRESULT GetConfiguration(IMonitorConfiguration** out) override;
};

}  // namespace ZEL
