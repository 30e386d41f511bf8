#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <thread>

#include "common/hostservices.h"
#include "support/storefixture.h"
#include "zelstore/jobs/jobworkercontroller.h"

namespace ZEL {
namespace {

// Base of stand-ins that live on a test's stack: their counts are not looked at.
template <typename Interface>
class OnStack : public Interface {
public:
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }

protected:
    ~OnStack() = default;
};

class Told final : public IJobStatus {
public:
    Told(const GUID& id, std::int32_t code) : id_(id), code_(code) {}
    bool GetJobId(GUID* id) override {
        *id = id_;
        return hasId;
    }
    bool GetStatusCode(std::int32_t* code) override {
        *code = code_;
        return hasCode;
    }
    bool hasId = true, hasCode = true;

private:
    const GUID id_;
    const std::int32_t code_;
};

// A job that a test moves by hand.
class HandJob final : public OnStack<IJob> {
public:
    HRESULT GetId(GUID* id) override {
        *id = storeJobId;
        return hr::ok;
    }
    HRESULT GetStatus(std::int32_t* out) override {
        *out = status;
        return hr::ok;
    }
    HRESULT Start(std::uint32_t) override {
        ++starts;
        if (onStart)
            onStart();
        return startResult;
    }
    HRESULT Stop() override {
        ++stops;
        return hr::ok;
    }
    HRESULT GetEnabled(bool* out) override {
        *out = enabled;
        return hr::ok;
    }
    HRESULT SetEnabled(bool value) override {
        enabled = value;
        return hr::ok;
    }
    HRESULT Save() override {
        ++saves;
        return hr::ok;
    }
    HRESULT GetTriggerValue(std::uint32_t trigger, std::uint32_t value,
                            JobTriggerValue* out) override {
        *out = values[value];
        return trigger == 0 ? triggerResult : hr::notFound;
    }
    HRESULT SetTriggerValue(std::uint32_t, std::uint32_t value,
                            const JobTriggerValue& in) override {
        values[value] = in;
        return hr::ok;
    }
    HRESULT GetRunInformation(bool* present, std::uint32_t* result) override {
        *present = queued;
        *result = queuedRuns;
        return hr::ok;
    }
    HRESULT Reschedule(std::uint32_t period, std::uint32_t delay, std::uint32_t mode) override {
        rescheduled = {{period, delay, mode}};
        return hr::ok;
    }

    std::int32_t status = 0;
    HRESULT startResult = hr::ok, triggerResult = hr::ok;
    std::function<void()> onStart;
    int starts = 0, stops = 0, saves = 0;
    bool enabled = true, queued = false;
    std::uint32_t queuedRuns = 0;
    std::map<std::uint32_t, JobTriggerValue> values;
    JobTriggerValue rescheduled;
};

class HandDefinition final : public OnStack<IJobDefinition> {
public:
    HRESULT GetEnabled(bool* out) override {
        *out = enabled;
        return hr::ok;
    }
    HRESULT GetTriggerValue(std::uint32_t, std::uint32_t value, JobTriggerValue* out) override {
        *out = values[value];
        return hr::ok;
    }
    bool enabled = true;
    std::map<std::uint32_t, JobTriggerValue> values;
};

class HandManager final : public OnStack<IJobManager> {
public:
    HandManager() { wm::SetJobManager(this); }
    ~HandManager() { wm::SetJobManager(nullptr); }

    HRESULT SetStatusCallback(wmJobMgr::IStatusCallback* in) override {
        callback = in;
        return callbackResult;
    }
    HRESULT GetJob(const GUID&, IJob** out) override {
        *out = Failed(jobResult) ? nullptr : &job;
        return jobResult;
    }
    HRESULT EnumerateJobs(IJobList**) override { return hr::notImplemented; }
    HRESULT GetDefinition(const GUID& id, IJobDefinition** out) override {
        EXPECT_EQ(id, storeJobId);
        *out = &stored;
        return hr::ok;
    }
    void Tell(std::int32_t code, const GUID& id = storeJobId) {
        Told told(id, code);
        EXPECT_EQ(callback->OnStatusChanged(&told), hr::ok);
    }

    HandJob job;
    wmJobMgr::IStatusCallback* callback = nullptr;
    HRESULT callbackResult = hr::ok, jobResult = hr::ok;
    HandDefinition stored;
};

class JobController : public testing::Test {
protected:
    JobController() : controller_(new CJobWorkerController) {}
    void Attach() {
        ASSERT_EQ(controller_->Initialize(), hr::ok);
        ASSERT_EQ(controller_->AttachJob(storeJobId), hr::ok);
    }
    // Runs `wait` on a thread, lets it wait for `cancel`, and gives its result.
    HRESULT CancelledResult(const std::function<HRESULT(HANDLE)>& wait) {
        wm::EventObject cancel;
        EXPECT_TRUE(cancel.Create(wm::EventReset::automatic));
        HRESULT result = hr::fail;
        std::thread waiting([&] { result = wait(cancel.Handle()); });
        cancel.Set();
        waiting.join();
        const HANDLE unused = cancel.Handle();
        EXPECT_EQ(wm::WaitForAny(1, &unused, 0), wm::waitTimedOut) << "it did not wait";
        return result;
    }

    HandManager manager_;
    CountedPtr<CJobWorkerController> controller_;
};

TEST_F(JobController, WithoutAJobNothingIsDone) {
    const auto expectNothing = [&](CJobWorkerController& controller) {
        bool flag = true;
        EXPECT_EQ(controller.IsActive(&flag), hr::ok);
        EXPECT_FALSE(flag);
        EXPECT_EQ(controller.IsActiveOrQueued(&flag), hr::ok);
        GUID id;
        std::int32_t status = 5;
        const HRESULT results[] = {controller.Detach(),
                                   controller.StopJob(),
                                   controller.RunJob(nullptr),
                                   controller.RunJobNow(),
                                   controller.RunJobAndWait(nullptr),
                                   controller.WaitForEnd(nullptr),
                                   controller.GetId(&id),
                                   controller.GetStatus(&status),
                                   controller.Start(0),
                                   controller.GetEnabled(&flag),
                                   controller.SetEnabled(true),
                                   controller.SyncSchedule(),
                                   controller.SetPeriodicSchedule(1, 2, true, true),
                                   controller.SetDailySchedule(1, 2, 3),
                                   controller.SetScheduleWindow(1, 2)};
        for (const HRESULT result : results)
            EXPECT_EQ(result, hr::ok);
    };
    expectNothing(*controller_);
    EXPECT_EQ(controller_->AttachJob(storeJobId), hr::ok) << "there is no manager to be asked";
    Attach();
    EXPECT_EQ(controller_->Uninitialize(), hr::ok);
    expectNothing(*controller_);
    ASSERT_EQ(controller_->Initialize(), hr::ok);
    EXPECT_EQ(controller_->AttachJob(storeJobId), hr::ok);
    expectNothing(*controller_);  // a second manager is not made
    EXPECT_EQ(manager_.job.starts, 0);
}

TEST_F(JobController, AttachingFailsWhereTheManagerDoes) {
    ASSERT_EQ(controller_->Initialize(), hr::ok);
    manager_.jobResult = hr::notFound;
    EXPECT_EQ(controller_->AttachJob(storeJobId), hr::notFound);
    manager_.jobResult = hr::ok;
    manager_.callbackResult = hr::accessDenied;
    EXPECT_EQ(controller_->AttachJob(storeJobId), hr::accessDenied);
    EXPECT_EQ(controller_->AttachJobByName(L"ZEL\\FDRRetentionJob"), hr::notImplemented);
    EXPECT_EQ(controller_->AttachJobByName(nullptr), hr::invalidArgument);
}

TEST_F(JobController, FacesAndDetach) {
    void* face = nullptr;
    EXPECT_EQ(controller_->QueryInterface(MakeGuid("94BA88EB-B1EC-4031-A960-79F67771AB68"), &face),
              TOBERR_NO_INTERFACE);
    for (const GUID& id : {wmJobMgr::iidStatusCallback, GUID()}) {
        ASSERT_EQ(controller_->QueryInterface(id, &face), TOB_OK);
        EXPECT_EQ(face, static_cast<wmJobMgr::IStatusCallback*>(controller_.Get()));
        controller_->Release();
    }
    Attach();
    EXPECT_EQ(manager_.callback, static_cast<wmJobMgr::IStatusCallback*>(controller_.Get()));
    EXPECT_EQ(controller_->Detach(), hr::ok);
    EXPECT_EQ(manager_.callback, nullptr);
}

TEST_F(JobController, ActivityFollowsTheStatus) {
    Attach();
    const std::pair<std::int32_t, bool> rows[] = {{0, false}, {1, true},  {2, true}, {3, true},
                                                  {7, false}, {8, false}, {9, true}};
    for (const auto& [status, expected] : rows) {
        manager_.job.status = status;
        bool active = !expected;
        EXPECT_EQ(controller_->IsActive(&active), hr::ok);
        EXPECT_EQ(active, expected) << status;
    }
    manager_.job.status = 7;
    bool active = false;
    manager_.job.queued = true;
    EXPECT_EQ(controller_->IsActiveOrQueued(&active), hr::ok);
    EXPECT_FALSE(active) << "an entry without runs";
    manager_.job.queuedRuns = 1;
    EXPECT_EQ(controller_->IsActiveOrQueued(&active), hr::ok);
    EXPECT_TRUE(active);
}

TEST_F(JobController, HearsOfItsOwnJobAlone) {
    manager_.job.status = 2;
    Attach();
    manager_.Tell(7, MakeGuid("11111111-2222-3333-4444-555555555555"));
    Told noId(storeJobId, 7), noCode(storeJobId, 7);
    noId.hasId = noCode.hasCode = false;
    for (IJobStatus* status : {static_cast<IJobStatus*>(nullptr), static_cast<IJobStatus*>(&noId),
                               static_cast<IJobStatus*>(&noCode)})
        EXPECT_EQ(controller_->OnStatusChanged(status), hr::ok);
    EXPECT_EQ(CancelledResult([&](HANDLE c) { return controller_->WaitForEnd(c); }), hr::ok);
    manager_.Tell(8);
    EXPECT_EQ(controller_->WaitForEnd(nullptr), hr::ok) << "ended: no wait";
    manager_.Tell(0);
    EXPECT_EQ(controller_->WaitForEnd(nullptr), hr::ok);
}

TEST_F(JobController, WaitsEndOnTheirStatusOrCancel) {
    Attach();
    manager_.job.onStart = [&] { manager_.Tell(2); };
    EXPECT_EQ(controller_->RunJob(nullptr), hr::ok);
    manager_.job.onStart = [&] {
        manager_.Tell(1);
        manager_.Tell(7);  // over before anybody waits
    };
    EXPECT_EQ(controller_->RunJob(nullptr), hr::ok);
    EXPECT_EQ(controller_->RunJobAndWait(nullptr), hr::ok);
    manager_.job.onStart = nullptr;
    EXPECT_EQ(CancelledResult([&](HANDLE c) { return controller_->RunJob(c); }), hr::ok);
    EXPECT_EQ(CancelledResult([&](HANDLE c) { return controller_->RunJobAndWait(c); }), hr::ok);
    EXPECT_EQ(controller_->RunJobNow(), hr::ok) << "nobody tells a status";

    manager_.job.startResult = jobAlreadyRunning;
    EXPECT_EQ(controller_->RunJob(nullptr), jobAlreadyRunning);
    EXPECT_EQ(controller_->RunJobNow(), jobAlreadyRunning);
    EXPECT_EQ(controller_->RunJobAndWait(nullptr), hr::ok) << "status 7: nothing to wait for";
    manager_.Tell(2);
    EXPECT_EQ(CancelledResult([&](HANDLE c) { return controller_->RunJobAndWait(c); }), hr::ok);
    manager_.job.startResult = hr::accessDenied;
    EXPECT_EQ(controller_->RunJobAndWait(nullptr), hr::accessDenied);

    HRESULT result = hr::fail;
    std::thread waiting([&] { result = controller_->WaitForEnd(nullptr); });
    EXPECT_EQ(controller_->Uninitialize(), hr::ok);
    waiting.join();
    EXPECT_EQ(result, hr::ok) << "no status will come any more";
}

TEST_F(JobController, EventsThatCantBeResetAreReported) {
    test::RecordingReports reports;
    CountedEvent none;
    EXPECT_FALSE(none.Set());
    EXPECT_FALSE(none.Reset());
    EXPECT_EQ(none.WaitBehind(1, nullptr), hr::fail);
    CountedEvent event;
    ASSERT_TRUE(event.Create());
    EXPECT_EQ(event.WaitBehind(0, InvalidHandle()), hr::fail);
}

TEST_F(JobController, ChangesAreSavedOnlyWhenTheyAreSome) {
    Attach();
    HandJob& job = manager_.job;
    EXPECT_EQ(controller_->SetEnabled(true), hr::ok);
    EXPECT_EQ(job.saves, 0);
    EXPECT_EQ(controller_->SetEnabled(false), hr::ok);
    EXPECT_EQ(job.saves, 1);
    EXPECT_FALSE(job.enabled);

    const JobTriggerValue untouched = {{9, 9, 9}};
    job.rescheduled = untouched;
    EXPECT_EQ(controller_->SetPeriodicSchedule(60, 5, true, true), hr::ok);
    EXPECT_EQ(job.saves, 2);
    EXPECT_EQ(job.rescheduled, untouched) << "the job is not enabled";
    const std::uint32_t expected[] = {1, 60, 5, 1};
    for (std::uint32_t value = 0; value < 4; ++value)
        EXPECT_EQ(job.values[value].part[0], expected[value]);
    job.enabled = true;
    EXPECT_EQ(controller_->SetPeriodicSchedule(60, 5, true, true), hr::ok);
    EXPECT_EQ(job.saves, 2) << "as it was";
    EXPECT_EQ(job.rescheduled, untouched);
    EXPECT_EQ(controller_->SetPeriodicSchedule(60, 6, true, true), hr::ok);
    EXPECT_EQ(job.rescheduled, (JobTriggerValue{{60, 6, 3}}));
    EXPECT_EQ(controller_->SetPeriodicSchedule(60, 6, false, false), hr::ok);
    EXPECT_EQ(job.rescheduled, (JobTriggerValue{{60, 0, 3}}));
    EXPECT_EQ(job.saves, 4);

    EXPECT_EQ(controller_->SetDailySchedule(23, 0, 1), hr::ok);
    EXPECT_EQ(controller_->SetDailySchedule(23, 0, 1), hr::ok);
    EXPECT_EQ(job.saves, 5);
    EXPECT_EQ(job.values[0].part[0], 2u);
    EXPECT_EQ(job.values[6], (JobTriggerValue{{23, 0, 1}}));
    EXPECT_EQ(controller_->SetScheduleWindow(100, 200), hr::ok);
    EXPECT_EQ(controller_->SetScheduleWindow(100, 200), hr::ok);
    EXPECT_EQ(job.saves, 6);
    EXPECT_EQ(job.values[0].part[0], 2u) << "the kind stays";
    job.triggerResult = hr::accessDenied;
    EXPECT_EQ(controller_->SetScheduleWindow(1, 2), hr::accessDenied);
}

TEST_F(JobController, SyncTakesTheStoredSchedule) {
    Attach();
    manager_.stored.values = {
        {0, {{1, 0, 0}}}, {1, {{30, 0, 0}}}, {2, {{4, 0, 0}}}, {3, {{1, 0, 0}}}};
    manager_.stored.enabled = false;
    EXPECT_EQ(controller_->SyncSchedule(), hr::ok);
    EXPECT_EQ(manager_.job.values[1].part[0], 30u);
    EXPECT_EQ(manager_.job.rescheduled, (JobTriggerValue{{30, 4, 3}}));
    EXPECT_TRUE(manager_.job.enabled) << "the flag is looked at only otherwise";
    manager_.stored.values[0] = {{2, 0, 0}};
    EXPECT_EQ(controller_->SyncSchedule(), hr::ok);
    EXPECT_FALSE(manager_.job.enabled);
    manager_.stored.values[0] = {{1, 0, 0}};
    manager_.job.triggerResult = hr::fail;
    manager_.stored.enabled = true;
    EXPECT_EQ(controller_->SyncSchedule(), hr::ok);
    EXPECT_TRUE(manager_.job.enabled);
}

}  // namespace
}  // namespace ZEL
