#include "common/componentapi.h"
#include "common/hostservices.h"
#include "guarded.h"
#include "jobs.h"

// The job manager as a component: thin faces over the jobs of the process. Every manager object
// shows the same jobs, so it does not matter how many are made or when they are released.

namespace wmjobmgr {

using namespace ZEL;

namespace {

// The jobs at one moment.
class JobList final : public TobObjectOf<IJobList, iidJobList> {
public:
    explicit JobList(std::vector<CountedPtr<Job>> jobs) : jobs_(std::move(jobs)) {}

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
    const std::vector<CountedPtr<Job>> jobs_;
};

// A copy of what was stored when it was asked for, so it needs no lock.
class StoredDefinition final : public TobObjectOf<IJobDefinition, iidJobDefinition> {
public:
    explicit StoredDefinition(Definition definition) : definition_(std::move(definition)) {}

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
    const Definition definition_;
};

class JobManager final : public TobObject<IJobManager, IJobRegistry> {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        IJobManager* const manager = this;
        IJobRegistry* const registry = this;
        return Answer(iid, out, {{iidJobManager, manager}, {iidJobRegistry, registry}});
    }

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
};

}  // namespace
}  // namespace wmjobmgr

extern "C" ZEL_COMPONENT_API ZEL::TobResult GetFactory(const ZEL::GUID& objectId,
                                                       ZEL::ITobFactory** factory) {
    using namespace ZEL;
    if (factory == nullptr || !(objectId == iidJobManager))
        return TOBERR_INVALID_ARG;
    return GiveFactory<wmjobmgr::JobManager>(factory);
}

extern "C" ZEL_COMPONENT_API std::uint32_t GetObjectCount() {
    return ZEL::LiveObjectCounter().load(std::memory_order_acquire);
}
