#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "common/hostservices.h"
#include "support/runningstore.h"
#include "zelstore/jobs/jobworkercontroller.h"

// The controller with the host's own job manager.
namespace ZEL {
namespace {

TEST(JobControllerHost, NoJobManagerFailsTheStart) {
    class NoLoader final : public wm::IObjectLoader {
    public:
        NoLoader() { wm::SetObjectLoader(this); }
        ~NoLoader() { wm::SetObjectLoader(nullptr); }
        TobResult LoadObject(const std::wstring&, const GUID&, const GUID&,
                             void** out) noexcept override {
            *out = nullptr;
            return TOBERR_BAD_LIBRARY;
        }
    } loader;
    CountedPtr<CJobWorkerController> controller(new CJobWorkerController);
    EXPECT_EQ(controller->Initialize(), hr::noInterface);
}

TEST(JobControllerHost, JobsAreFoundByName) {
    CountedPtr<CJobWorkerController> controller(new CJobWorkerController);
    ASSERT_EQ(controller->Initialize(), hr::ok);
    GUID id, retention, submission;
    EXPECT_EQ(controller->AttachJobByName(L"zel\\fdrretentionjob"), hr::notFound);
    ASSERT_EQ(controller->AttachJobByName(retentionJobName), hr::ok);
    ASSERT_EQ(controller->GetId(&retention), hr::ok);
    ASSERT_EQ(controller->AttachJobByName(L"ZEL\\FDRSubmissionJob"), hr::ok);
    ASSERT_EQ(controller->GetId(&submission), hr::ok);
    ASSERT_EQ(controller->AttachJob(storeJobId), hr::ok);
    ASSERT_EQ(controller->GetId(&id), hr::ok);
    EXPECT_EQ(id, storeJobId);
    EXPECT_FALSE(retention == submission);
    EXPECT_EQ(controller->Detach(), hr::ok);
}

// From a receive-time row to the run of the host's function.
TEST(JobControllerHost, ReceiveRowsOfALiveStoreRunTheJob) {
    CountedPtr<IJobManager> manager;
    ASSERT_EQ(wm::OpenJobManager(manager.Receive()), TOB_OK);
    CountedPtr<IJobRegistry> registry;
    ASSERT_EQ(manager->QueryInterface(iidJobRegistry, registry.ReceiveVoid()), TOB_OK);
    wm::EventObject ran;
    ASSERT_TRUE(ran.Create(wm::EventReset::automatic));
    const auto run = [](void* context, HANDLE) {
        static_cast<wm::EventObject*>(context)->Set();
        return hr::ok;
    };
    ASSERT_EQ(registry->RegisterJob(storeJobId, nullptr, run, &ran), hr::ok);
    {
        constexpr std::uint32_t soon = 5;  // milliseconds
        test::RunningStore store({soon, test::RunningStore::never});
        ASSERT_EQ(store.core.Initialize(), hr::ok);
        ASSERT_EQ(store.core.SetLiveMode(true), hr::ok);
        const std::string row = "r<receive_time>2026-01-01T00:00:00.000Z<sequence>0000000001";
        ASSERT_EQ(store.Insert(row), hr::ok);
        const HANDLE handle = ran.Handle();
        EXPECT_EQ(wm::WaitForAny(1, &handle, wm::waitForever), 0u);
        EXPECT_TRUE(store.OnDisk(row));
    }
    ASSERT_EQ(registry->RegisterJob(storeJobId, nullptr, nullptr, nullptr), hr::ok);
    CountedPtr<IJob> job;
    ASSERT_EQ(manager->GetJob(storeJobId, job.Receive()), hr::ok);
    while (job->Start(0) == jobAlreadyRunning)
        std::this_thread::yield();  // `ran` outlives every run of the function
}

// One setting, taken back at once, and every waiter hears of it.
TEST(JobControllerStress, EachSettingReachesEveryWaiter) {
    CountedEvent event;
    ASSERT_TRUE(event.Create());
    constexpr std::uint64_t rounds = 200;
    std::atomic<std::uint64_t> arrived{0};
    std::vector<std::thread> waiters;
    constexpr std::uint64_t waiterCount = 3;
    for (std::uint64_t i = 0; i < waiterCount; ++i)
        waiters.emplace_back([&] {
            for (std::uint64_t known = 0; known < rounds; ++known) {
                ++arrived;
                EXPECT_EQ(event.WaitBehind(known, nullptr), hr::ok);
            }
        });
    for (std::uint64_t round = 1; round <= rounds; ++round) {
        while (arrived < round * waiterCount)
            std::this_thread::yield();
        for (int i = 0; i < 50; ++i)
            std::this_thread::yield();  // so that some wait already
        EXPECT_TRUE(event.Set());
        EXPECT_TRUE(event.Reset());
    }
    for (std::thread& waiter : waiters)
        waiter.join();
}

// Starts, ends and waits of many threads, as fast as they can.
TEST(JobControllerStress, NoWakeUpIsLost) {
    CountedPtr<IJobManager> manager;
    ASSERT_EQ(wm::OpenJobManager(manager.Receive()), TOB_OK);
    CountedPtr<IJobRegistry> registry;
    ASSERT_EQ(manager->QueryInterface(iidJobRegistry, registry.ReceiveVoid()), TOB_OK);
    static std::atomic<int> runs{0};
    ASSERT_EQ(registry->RegisterJob(
                  storeJobId, nullptr,
                  [](void*, HANDLE) {
                      ++runs;
                      return hr::ok;
                  },
                  nullptr),
              hr::ok);
    CountedPtr<CJobWorkerController> controller(new CJobWorkerController);
    ASSERT_EQ(controller->Initialize(), hr::ok);
    ASSERT_EQ(controller->AttachJob(storeJobId), hr::ok);
    std::vector<std::thread> threads;
    const auto repeat = [&](auto operation) {
        threads.emplace_back([operation] {
            for (int i = 0; i < 2000; ++i)
                operation();
        });
    };
    for (int i = 0; i < 2; ++i) {
        repeat([&] { EXPECT_EQ(controller->RunJobAndWait(nullptr), hr::ok); });
        repeat([&] {
            const HRESULT result = controller->RunJob(nullptr);
            EXPECT_TRUE(result == hr::ok || result == jobAlreadyRunning);
        });
        repeat([&] { EXPECT_EQ(controller->WaitForEnd(nullptr), hr::ok); });
        repeat([&] { IgnoreResult(controller->RunJobNow(), "it may run already"); });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(runs, 0);
    EXPECT_EQ(controller->Detach(), hr::ok);
    EXPECT_EQ(controller->Uninitialize(), hr::ok);
}

}  // namespace
}  // namespace ZEL
