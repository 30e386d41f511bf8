#pragma once

#include "common/itobbaseimpl.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

namespace ZEL {

// What subscribers are told. Unchangeable; lives as long as anybody holds a reference.
class DiskSpaceMonitorEvent final : public IMonitorEvent,
                                    public ITobBaseImpl<CTobThreadSafeRefCount>,
                                    public vodLib::NonCopyable {
public:
    explicit DiskSpaceMonitorEvent(DiskState state) noexcept : state_(state) {}

    TobResult QueryInterface(const GUID& iid, void** out) override {
        IMonitorEvent* const face = this;
        const InterfaceRow rows[] = {{iidMonitorEvent, face}};
        return FindInterface(rows, iid, this, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    DiskState GetState() override { return state_; }

    virtual ITobBase* GetOwner() { return owner_.Get(); }
    virtual ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }
    virtual TobResult AttachOwner(ITobBase* owner) { return owner_.Attach(owner); }

private:
    ObjectOwnership owner_;
    const DiskState state_;
};

}  // namespace ZEL
