#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "common/itobbaseimpl.h"
#include "runningstore.h"
#include "support/slowdisk.h"
#include "zelstore/jobs/jobworkercontroller.h"

namespace ZEL {
namespace {

using test::EventKey;
using test::RunningStore;

constexpr std::uint32_t soon = 5;  // milliseconds

TEST(Coordinator, WritesFullBatchesWhenTheNextRecordComes) {
    RunningStore store;
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    for (int i = 0; i <= 500; ++i)
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
    store.AwaitOnDisk(EventKey(499));
    EXPECT_FALSE(store.OnDisk(EventKey(500))) << "its batch is not full";
    ASSERT_EQ(store.core.Stop(), hr::ok);
    EXPECT_TRUE(store.OnDisk(EventKey(500))) << "stopping flushes partly filled batches";
}

TEST(Coordinator, TimerTickWritesWhatIsThere) {
    RunningStore store({RunningStore::never, soon});
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    ASSERT_EQ(store.Insert(EventKey(1)), hr::ok);
    store.AwaitOnDisk(EventKey(1));
    ASSERT_EQ(store.Insert(EventKey(2)), hr::ok);
    store.AwaitOnDisk(EventKey(2));
}

// Counts the starts of the job in place of running one.
class CountingJob {
public:
    CountingJob() {
        JobControllerFactory() = [this]() -> IZELJobController* {
            ++made;
            auto* controller = new Controller(*this);
            controller->AddRef();
            return controller;
        };
    }
    ~CountingJob() { JobControllerFactory() = nullptr; }

    int made = 0;
    HRESULT attachResult = hr::ok;
    std::atomic<int> starts{0};

private:
    class Controller final : public IZELJobController {
    public:
        explicit Controller(CountingJob& job) : job_(job) {}
        TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
        std::int64_t AddRef() override { return ++count_; }
        std::int64_t Release() override {
            const std::int64_t left = --count_;
            if (left == 0)
                delete this;
            return left;
        }
        HRESULT Initialize() override { return hr::ok; }
        HRESULT Uninitialize() override { return hr::ok; }
        HRESULT Detach() override { return hr::ok; }
        HRESULT AttachJobByName(const wchar_t*) override { return hr::ok; }
        HRESULT AttachJob(const GUID& id) override {
            EXPECT_EQ(id, storeJobId);
            return job_.attachResult;
        }
        HRESULT IsActive(bool*) override { return hr::ok; }
        HRESULT StopJob() override { return hr::ok; }
        HRESULT RunJob(HANDLE) override { return hr::ok; }
        HRESULT RunJobNow() override {
            ++job_.starts;
            return hr::fail;  // only traced
        }
        HRESULT RunJobAndWait(HANDLE) override { return hr::ok; }
        HRESULT IsActiveOrQueued(bool*) override { return hr::ok; }
        HRESULT WaitForEnd(HANDLE) override { return hr::ok; }
        HRESULT GetId(GUID*) override { return hr::ok; }
        HRESULT GetStatus(std::int32_t*) override { return hr::ok; }
        HRESULT Start(std::uint32_t) override { return hr::ok; }
        HRESULT GetEnabled(bool*) override { return hr::ok; }
        HRESULT SetEnabled(bool) override { return hr::ok; }
        HRESULT SyncSchedule() override { return hr::ok; }
        HRESULT SetPeriodicSchedule(std::uint32_t, std::uint32_t, bool, bool) override {
            return hr::ok;
        }
        HRESULT SetDailySchedule(std::uint32_t, std::uint32_t, std::uint32_t) override {
            return hr::ok;
        }
        HRESULT SetScheduleWindow(std::uint32_t, std::uint32_t) override { return hr::ok; }

    private:
        ~Controller() = default;
        CountingJob& job_;
        std::atomic<std::int64_t> count_{0};
    };
};

TEST(Coordinator, LiveModeDrainsAndStartsTheJobForReceiveRows) {
    CountingJob job;
    RunningStore store({soon, RunningStore::never});
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    ASSERT_EQ(store.core.SetLiveMode(true), hr::ok);
    ASSERT_EQ(store.Insert(EventKey(1)), hr::ok);
    store.AwaitOnDisk(EventKey(1));
    const std::string silent = EventKey(1) + "<silent_sequence>0000000001<silent_enrichment>1";
    ASSERT_EQ(store.Insert(silent, "{}", true), hr::ok);
    ASSERT_EQ(store.Insert(EventKey(2)), hr::ok);
    store.AwaitOnDisk(EventKey(2));
    EXPECT_EQ(job.starts, 0) << "events and silent enrichments start nothing";
    ASSERT_EQ(store.Insert("r<receive_time>2026-01-01T00:00:00.000Z<sequence>0000000001"), hr::ok);
    while (job.starts == 0)
        std::this_thread::yield();
}

TEST(Coordinator, JobControllerThatFailsLeavesTheStoreNew) {
    CountingJob job;
    job.attachResult = hr::notFound;
    RunningStore store;
    EXPECT_EQ(store.core.Initialize(), hr::notFound);
    const auto text = test::Str("x");
    EXPECT_EQ(store.core.Insert(text.Get(), text.Get(), false), hr::notReady);
    job.attachResult = hr::ok;
    EXPECT_EQ(store.core.Initialize(), hr::ok);
    EXPECT_EQ(store.core.Initialize(), hr::nothingToDo);
    EXPECT_EQ(job.made, 2) << "one for each attempt, none for the store that runs";
    JobControllerFactory() = [] { return static_cast<IZELJobController*>(nullptr); };
    EXPECT_EQ(store.core.Stop(), hr::ok);
    EXPECT_EQ(store.core.Shutdown(), hr::ok);
    EXPECT_EQ(store.core.Initialize(), hr::unexpected);
}

TEST(Coordinator, ProducersNeverWaitForTheDisk) {
    RunningStore store;
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    test::SlowDisk disk;
    disk.Block(".log");
    // The coordinator hangs in its first write; producers go on until the queue is full, and are
    // then refused rather than kept waiting.
    int accepted = 0;
    while (Succeeded(store.Insert(EventKey(accepted))))
        ++accepted;
    EXPECT_GE(accepted, 20000);
    EXPECT_LE(accepted, 20000 + 40 * 500) << "the queue and what the coordinator has taken";
    const std::string silent = EventKey(1) + "<silent_sequence>0000000001<silent_enrichment>1";
    EXPECT_EQ(store.Insert(silent, "{}", true), hr::ok) << "the other queue is not full";
    disk.AwaitBlocked();
    disk.Unblock();
    EXPECT_EQ(store.StopAndCount(), static_cast<std::size_t>(accepted));
}

TEST(Coordinator, EventsReachTheDiskAheadOfTheirSilentEnrichments) {
    RunningStore store;
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    const std::string silent = EventKey(1) + "<silent_sequence>0000000001<silent_enrichment>1";
    ASSERT_EQ(store.Insert(silent, "{}", true), hr::ok);
    ASSERT_EQ(store.Insert(EventKey(1)), hr::ok);
    test::SlowDisk disk;
    disk.Block(".log");
    std::thread stopping([&] { EXPECT_EQ(store.core.Stop(), hr::ok); });
    disk.AwaitBlocked();
    EXPECT_FALSE(store.directory.Exists("20260101999")) << "the event's write hangs";
    disk.Unblock();
    stopping.join();
    EXPECT_TRUE(store.directory.Exists("20260101999"));
}

TEST(Coordinator, LosesNothingThatWasAcceptedBeforeTheStop) {
    RunningStore store({soon, soon});
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    constexpr int producers = 4, each = 3000;
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p)
        threads.emplace_back([&, p] {
            for (int i = 0; i < each; ++i)
                while (Failed(store.Insert(EventKey(p * each + i))))
                    std::this_thread::yield();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(store.StopAndCount(), static_cast<std::size_t>(producers * each));
}

TEST(Coordinator, StoppedStoreQueuesAndReportsWhenFull) {
    test::RecordingReports reports;
    RunningStore store;
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    ASSERT_EQ(store.core.Stop(), hr::ok);
    ASSERT_EQ(store.core.Shutdown(), hr::ok);
    int taken = 0;
    HRESULT result = hr::ok;
    while (Succeeded(result = store.Insert(EventKey(taken), "{}", true)))
        ++taken;
    EXPECT_EQ(taken, 20000);
    EXPECT_EQ(result, hr::unexpected);
    const auto& last = reports.At(reports.Count() - 1);
    EXPECT_EQ(last.Label(), "EnqueueForInsertion - Silent Enrichment");
    EXPECT_EQ(last.Details().front().second, "FDR Event Coordinator Thread is stopped.");
}

}  // namespace
}  // namespace ZEL
