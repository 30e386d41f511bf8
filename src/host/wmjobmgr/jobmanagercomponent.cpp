#include <map>

#include "common/hostservices.h"
#include "job.h"

namespace ZEL {

std::atomic<std::uint32_t>& LiveObjectCounter() noexcept {
    static std::atomic<std::uint32_t> counter{0};
    return counter;
}

void* ModuleHandle() noexcept {
    static const char anchor = 0;
    return const_cast<char*>(&anchor);
}

}  // namespace ZEL

namespace wmjobmgr {

using namespace ZEL;

namespace {

class Status final : public IJobStatus {
public:
    Status(const GUID& id, std::int32_t code) : id_(id), code_(code) {}
    bool GetJobId(GUID* id) override {
        *id = id_;
        return true;
    }
    bool GetStatusCode(std::int32_t* code) override {
        *code = code_;
        return true;
    }

private:
    const GUID id_;
    const std::int32_t code_;
};

// The jobs of the process. They and their callback outlive the manager objects that hosts hold.
class Jobs {
public:
    Jobs() { FindOrMake(storeJobId); }

    CountedPtr<Job> Find(const GUID& id) {
        const wm::Hold hold(lock_);
        const auto found = jobs_.find(id);
        return found != jobs_.end() ? found->second : nullptr;
    }
    CountedPtr<Job> FindOrMake(const GUID& id) {
        CountedPtr<Job> fresh(
            new Job(id, [this](const GUID& changed, std::int32_t s) { Tell(changed, s); }));
        const wm::Hold hold(lock_);
        return jobs_.try_emplace(id, std::move(fresh)).first->second;
    }

    void SetCallback(wmJobMgr::IStatusCallback* callback) {
        CountedPtr<wmJobMgr::IStatusCallback> former(callback);
        const wm::Hold hold(lock_);
        std::swap(callback_, former);
    }

private:
    void Tell(const GUID& id, std::int32_t code) {
        CountedPtr<wmJobMgr::IStatusCallback> callback;
        {
            const wm::Hold hold(lock_);
            callback = callback_;
        }
        if (!callback)
            return;
        Status status(id, code);
        try {
            if (Succeeded(callback->OnStatusChanged(&status)))
                return;
        } catch (...) {  // a host's fault must not leave the job running for ever
        }
        wm::Trace(wm::TraceLevel::warning, "a job's status was not taken");
    }

    wm::Lock lock_{wm::LockRank::job};
    std::map<GUID, CountedPtr<Job>> jobs_ GUARDED_BY(lock_);
    CountedPtr<wmJobMgr::IStatusCallback> callback_ GUARDED_BY(lock_);
};

Jobs& TheJobs() {
    static Jobs& jobs = *new Jobs;
    return jobs;
}

class JobManager final : public IJobManager,
                         public IJobRegistry,
                         public ITobBaseImpl<CTobThreadSafeRefCount>,
                         public vodLib::NonCopyable {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        IJobManager* const manager = this;
        IJobRegistry* const registry = this;
        const InterfaceRow rows[] = {{iidJobManager, manager}, {iidJobRegistry, registry}};
        return FindInterface(rows, iid, manager, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    HRESULT SetStatusCallback(wmJobMgr::IStatusCallback* callback) override {
        TheJobs().SetCallback(callback);
        return hr::ok;
    }
    HRESULT GetJob(const GUID& id, IJob** job) override {
        if (job == nullptr)
            return hr::invalidArgument;
        *job = TheJobs().Find(id).Detach();
        return *job != nullptr ? hr::ok : hr::notFound;
    }
    HRESULT RegisterJob(const GUID& id, HRESULT (*run)(void* context), void* context) override {
        try {
            TheJobs().FindOrMake(id)->SetFunction({run, context});
            return hr::ok;
        } catch (...) {
            return hr::outOfMemory;
        }
    }

    ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }

private:
    ObjectOwnership owner_;
};

}  // namespace
}  // namespace wmjobmgr

extern "C" __attribute__((visibility("default"))) ZEL::TobResult GetFactory(
    const ZEL::GUID& objectId, ZEL::ITobFactory** factory) {
    using namespace ZEL;
    if (factory == nullptr || !(objectId == iidJobManager))
        return TOBERR_INVALID_ARG;
    auto* const made = new (std::nothrow) CTobFactoryImpl<wmjobmgr::JobManager>();
    if (made == nullptr)
        return TOBERR_OUT_OF_MEMORY;
    made->AddRef();
    *factory = made;
    return TOB_OK;
}

extern "C" __attribute__((visibility("default"))) std::uint32_t GetObjectCount() {
    return ZEL::LiveObjectCounter().load(std::memory_order_acquire);
}
