#include "common/hostservices.h"
#include "guarded.h"
#include "jobs.h"

namespace wmjobmgr {

using namespace ZEL;

namespace {

// The jobs at one moment.
class JobList final : public IJobList,
                      public ITobBaseImpl<CTobThreadSafeRefCount>,
                      public vodLib::NonCopyable {
public:
    explicit JobList(std::vector<CountedPtr<Job>> jobs) : jobs_(std::move(jobs)) {}

    TobResult QueryInterface(const GUID& iid, void** out) override {
        IJobList* const face = this;
        const InterfaceRow rows[] = {{iidJobList, face}};
        return FindInterface(rows, iid, face, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    std::size_t Count() override { return jobs_.size(); }
    HRESULT GetItem(std::size_t index, ITobBase** item) override {
        if (item == nullptr || index >= jobs_.size())
            return hr::invalidArgument;
        IJob* const job = jobs_[index].Get();
        job->AddRef();
        *item = job;
        return hr::ok;
    }

private:
    ObjectOwnership owner_;
    const std::vector<CountedPtr<Job>> jobs_;
};

class StoredDefinition final : public IJobDefinition,
                               public ITobBaseImpl<CTobThreadSafeRefCount>,
                               public vodLib::NonCopyable {
public:
    explicit StoredDefinition(Definition definition) : definition_(std::move(definition)) {}

    TobResult QueryInterface(const GUID& iid, void** out) override {
        IJobDefinition* const face = this;
        const InterfaceRow rows[] = {{iidJobDefinition, face}};
        return FindInterface(rows, iid, face, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    HRESULT GetEnabled(bool* enabled) override {
        if (enabled == nullptr)
            return hr::invalidArgument;
        *enabled = definition_.enabled;
        return hr::ok;
    }
    HRESULT GetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                            JobTriggerValue* out) override {
        if (out == nullptr)
            return hr::invalidArgument;
        if (trigger >= definition_.triggers.size())
            return hr::notFound;
        *out = definition_.triggers[trigger].Get(value);
        return hr::ok;
    }

private:
    ObjectOwnership owner_;
    const Definition definition_;
};

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
        return Guarded([&] {
            Jobs::Instance().SetCallback(callback);
            return hr::ok;
        });
    }
    HRESULT GetJob(const GUID& id, IJob** job) override {
        if (job == nullptr)
            return hr::invalidArgument;
        return Guarded([&] {
            *job = Jobs::Instance().Find(id).Detach();
            return *job != nullptr ? hr::ok : hr::notFound;
        });
    }
    HRESULT EnumerateJobs(IJobList** list) override {
        if (list == nullptr)
            return hr::invalidArgument;
        return Guarded([&] {
            *list = CountedPtr<IJobList>(new JobList(Jobs::Instance().All())).Detach();
            return hr::ok;
        });
    }
    HRESULT GetDefinition(const GUID& id, IJobDefinition** definition) override {
        if (definition == nullptr)
            return hr::invalidArgument;
        return Guarded([&] {
            const CountedPtr<Job> job = Jobs::Instance().Find(id);
            if (!job)
                return hr::notFound;
            *definition = CountedPtr<IJobDefinition>(new StoredDefinition(job->Stored())).Detach();
            return hr::ok;
        });
    }
    HRESULT RegisterJob(const GUID& id, const wchar_t* name, JobFunction run,
                        void* context) override {
        return Guarded([&] {
            const CountedPtr<Job> job = Jobs::Instance().FindOrMake(id, name);
            if (!job)
                return hr::outOfMemory;
            job->SetFunction(name, {run, context});
            return hr::ok;
        });
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
