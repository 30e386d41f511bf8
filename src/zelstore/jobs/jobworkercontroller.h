#pragma once

#include "common/itobbaseimpl.h"
#include "common/jobmanager.h"
#include "zelstore/jobs/izeljobcontroller.h"

namespace ZEL {

// A controller that follows no job yet: it takes the identifier of its job and answers every
// operation as a controller without a job does. The store core can thus be started by a host that
// schedules nothing.
class CJobWorkerController final : public IZELJobController,
                                   public wmJobMgr::IStatusCallback,
                                   public ITobBaseImpl<CTobThreadSafeRefCount>,
                                   public vodLib::NonCopyable {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override;
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    HRESULT Initialize() override { return hr::ok; }
    HRESULT Uninitialize() override { return hr::ok; }
    HRESULT Detach() override { return hr::ok; }
    HRESULT AttachJobByName(const wchar_t*) override { return hr::ok; }
    HRESULT AttachJob(const GUID& id) override;
    HRESULT IsActive(bool* active) override;
    HRESULT StopJob() override { return hr::ok; }
    HRESULT RunJob(HANDLE) override { return hr::ok; }
    HRESULT RunJobNow() override { return hr::ok; }
    HRESULT RunJobAndWait(HANDLE) override { return hr::ok; }
    HRESULT IsActiveOrQueued(bool* active) override { return IsActive(active); }
    HRESULT WaitForEnd(HANDLE) override { return hr::ok; }
    HRESULT GetId(GUID* id) override;
    HRESULT GetStatus(std::int32_t* status) override;
    HRESULT Start(std::uint32_t) override { return hr::ok; }
    HRESULT GetEnabled(bool* enabled) override;
    HRESULT SetEnabled(bool) override { return hr::ok; }
    HRESULT SyncSchedule() override { return hr::ok; }
    HRESULT SetPeriodicSchedule(std::uint32_t, std::uint32_t, bool, bool) override {
        return hr::ok;
    }
    HRESULT SetDailySchedule(std::uint32_t, std::uint32_t, std::uint32_t) override {
        return hr::ok;
    }
    HRESULT SetScheduleWindow(std::uint32_t, std::uint32_t) override { return hr::ok; }

    HRESULT OnStatusChanged(IJobStatus*) override { return hr::ok; }
    HRESULT Reserved() override { return hr::ok; }

    virtual ITobBase* GetOwner() { return owner_.Get(); }
    virtual ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }
    virtual TobResult AttachOwner(ITobBase* owner) { return owner_.Attach(owner); }

private:
    ObjectOwnership owner_;
    GUID jobId_;
};

}  // namespace ZEL
