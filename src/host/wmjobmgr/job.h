#pragma once

#include <functional>

#include "common/itobbaseimpl.h"
#include "common/jobmanager.h"
#include "common/lock.h"
#include "common/workerthread.h"

namespace wmjobmgr {

// One job: a function of the host that runs on a thread of its own, one run at a time. Each change
// of status is told to the manager's callback on that thread, under no lock.
class Job final : public ZEL::IJob,
                  public ZEL::ITobBaseImpl<ZEL::CTobThreadSafeRefCount>,
                  public vodLib::NonCopyable {
public:
    using Tell = std::function<void(const ZEL::GUID& id, std::int32_t status)>;
    struct Function {
        ZEL::HRESULT (*run)(void* context) = nullptr;
        void* context = nullptr;
    };

    Job(const ZEL::GUID& id, Tell tell) : id_(id), tell_(std::move(tell)) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override;
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ZEL::ReleaseObject(this, refCount_, owner_); }

    ZEL::HRESULT GetId(ZEL::GUID* id) override;
    ZEL::HRESULT GetStatus(std::int32_t* status) override;
    ZEL::HRESULT Start(std::uint32_t flags) override;
    ZEL::HRESULT Stop() override;
    ZEL::HRESULT GetEnabled(bool* enabled) override;
    ZEL::HRESULT SetEnabled(bool enabled) override;
    // Jobs live as long as the process: there is nothing to make last.
    ZEL::HRESULT Save() override { return ZEL::hr::ok; }

    void SetFunction(const Function& function);

private:
    void Run();
    void RunOnce();
    void ChangeStatus(std::int32_t status, bool active);

    ZEL::ObjectOwnership owner_;
    const ZEL::GUID id_;
    const Tell tell_;
    wm::Lock lock_{wm::LockRank::job};
    Function function_ GUARDED_BY(lock_);
    std::int32_t status_ GUARDED_BY(lock_) = ZEL::jobStatus::noRun;
    bool enabled_ GUARDED_BY(lock_) = true;
    bool active_ GUARDED_BY(lock_) = false;   // a run was asked for and has not ended
    bool looping_ GUARDED_BY(lock_) = false;  // the thread will see a new run without being started
    wm::WorkerThread thread_;
};

}  // namespace wmjobmgr
