#pragma once

#include "common/itobbaseimpl.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

namespace ZEL {

// Gives a host the one monitor of the process without the host having to keep it. The monitor is
// the module's: managers come and go, and it runs until one of them stops it.
class DiskSpaceMonitorManager final : public IDiskSpaceMonitorManager,
                                      public ITobBaseImpl<CTobThreadSafeRefCount>,
                                      public vodLib::NonCopyable {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        IDiskSpaceMonitorManager* const face = this;
        const InterfaceRow rows[] = {{iidDiskSpaceMonitorManager, face}};
        return FindInterface(rows, iid, this, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    HRESULT StartMonitor() override;
    HRESULT StopMonitor() override;
    HRESULT GetRegistration(IMonitorRegistration** out) override;
    HRESULT GetConfiguration(IMonitorConfiguration** out) override;

    virtual ITobBase* GetOwner() { return owner_.Get(); }
    virtual ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }
    virtual TobResult AttachOwner(ITobBase* owner) { return owner_.Attach(owner); }

private:
    ObjectOwnership owner_;
};

}  // namespace ZEL
