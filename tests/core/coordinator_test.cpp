#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "../database/databasefixture.h"
#include "../database/otherprocess.h"
#include "common/itobbaseimpl.h"
#include "support/runningstore.h"
#include "support/slowdisk.h"
#include "zelstore/jobs/jobworkercontroller.h"

namespace ZEL {
namespace {

using test::EventKey;
using test::RunningStore;

constexpr std::uint32_t soon = 5;  // milliseconds
const std::string silentKey = EventKey(1) + "<silent_sequence>0000000001<silent_enrichment>1";

TEST(Coordinator, WritesFullBatchesWhenTheNextRecordComes) {
    RunningStore store;
    store.Start();
    for (int i = 0; i <= 500; ++i)
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
    store.AwaitOnDisk(EventKey(499));
    EXPECT_FALSE(store.OnDisk(EventKey(500))) << "its batch is not full";
    ASSERT_EQ(store.core.Stop(), hr::ok);
    EXPECT_TRUE(store.OnDisk(EventKey(500))) << "stopping flushes partly filled batches";
}

TEST(Coordinator, TimerTickWritesWhatIsThere) {
    RunningStore store({RunningStore::never, soon});
    store.Start();
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
        store.AwaitOnDisk(EventKey(i));
    }
}

TEST(Coordinator, LiveModeDrainsAndStartsTheJobForReceiveRowsAlone) {
    CountedPtr<IJobManager> manager;
    ASSERT_EQ(wm::OpenJobManager(manager.Receive()), TOB_OK);
    CountedPtr<IJobRegistry> registry;
    ASSERT_EQ(manager->QueryInterface(iidJobRegistry, registry.ReceiveVoid()), TOB_OK);
    static std::atomic<int> runs{0};
    const auto count = [](void*, HANDLE) {
        ++runs;
        return hr::ok;
    };
    ASSERT_EQ(registry->RegisterJob(storeJobId, nullptr, count, nullptr), hr::ok);
    RunningStore store({soon, RunningStore::never});
    store.Start();
    ASSERT_EQ(store.core.SetLiveMode(true), hr::ok);
    ASSERT_EQ(store.Insert(silentKey, "{}", RecordKind::silentEnrichment), hr::ok);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
        store.AwaitOnDisk(EventKey(i));
    }
    EXPECT_EQ(runs, 0);
    ASSERT_EQ(store.Insert("r<receive_time>2026-01-01T00:00:00.000Z<sequence>0000000001"), hr::ok);
    while (runs == 0)
        std::this_thread::yield();
}

TEST(Coordinator, WithoutAJobControllerTheStoreStaysNew) {
    RunningStore store;
    JobControllerFactory() = [] { return static_cast<IZELJobController*>(nullptr); };
    EXPECT_EQ(store.core.Initialize(), hr::unexpected);
    const auto text = test::Str("x");
    EXPECT_EQ(store.core.Insert(text.Get(), text.Get(), RecordKind::event), hr::notReady);
    JobControllerFactory() = nullptr;
    store.Start();
    EXPECT_EQ(store.core.Initialize(), hr::nothingToDo);
}

TEST(Coordinator, ProducersNeverWaitForTheDisk) {
    RunningStore store;
    store.Start();
    test::SlowDisk disk;
    disk.Block(".log");
    const int accepted = store.Fill();  // while the coordinator hangs in its first write
    EXPECT_GE(accepted, 20000);
    EXPECT_LE(accepted, 20000 + 40 * 500) << "the queue and what the coordinator has taken";
    EXPECT_EQ(store.Insert(silentKey, "{}", RecordKind::silentEnrichment), hr::ok)
        << "the other queue is not full";
    disk.AwaitBlocked();
    disk.Unblock();
    EXPECT_EQ(store.StopAndCount(), static_cast<std::size_t>(accepted));
}

TEST(Coordinator, EventsReachTheDiskAheadOfTheirSilentEnrichments) {
    RunningStore store;
    store.Start();
    ASSERT_EQ(store.Insert(silentKey, "{}", RecordKind::silentEnrichment), hr::ok);
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

TEST(Coordinator, TellsHowManyRecordsAFailedWriteCost) {
    RunningStore store;
    store.Start();
    const test::FakeFreeSpace full(0);
    const test::RecordingReports reports;
    for (const int i : {1, 2, 2})
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
    ASSERT_EQ(store.Insert("r<receive_time>2026-01-01T00:00:00.000Z<sequence>0000000001"), hr::ok);
    ASSERT_EQ(store.Insert(silentKey, "{}", RecordKind::silentEnrichment), hr::ok);
    ASSERT_EQ(store.core.Stop(), hr::ok);
    std::map<std::string, std::string> lost;
    for (std::size_t i = 0; i < reports.Count(); ++i) {
        const wm::ErrorReport report = reports.At(i);
        if (report.Label() == wm::reportLabel::lostBatch)
            lost.insert(report.Details().begin(), report.Details().end());
    }
    EXPECT_EQ(lost, (std::map<std::string, std::string>{{wm::lostDetail::events, "3"},
                                                        {wm::lostDetail::receipts, "1"},
                                                        {wm::lostDetail::enrichments, "1"}}));
    EXPECT_EQ(store.core.SettledRecords(), 4U) << "of the event queue, the replaced one included";
    EXPECT_EQ(store.core.SettledEnrichments(), 1U);
}

TEST(Coordinator, StopWritesInOrderAfterWhatTheCoordinatorHasInHand) {
    RunningStore store;
    store.Start();
    store.End();
    constexpr int last = 10 * 500 - 1;
    for (int i = 0; i <= last; ++i)
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
    store.Start();
    test::SlowDisk disk;
    disk.Block(".log");
    ASSERT_EQ(store.Insert(EventKey(last), "new"),
              hr::ok);  // wakes the coordinator, which takes all
    disk.AwaitBlocked();
    std::thread stopping([&] {
        EXPECT_EQ(store.core.Stop(), hr::ok);
        EXPECT_TRUE(store.OnDisk(EventKey(last - 1))) << "it was in the coordinator's hands";
    });
    for (int i = 0; i < 10000; ++i)
        std::this_thread::yield();  // a Stop that does not wait gets its own writing under way
    disk.Unblock();
    stopping.join();
    store.End();
    ZelMasterDatabase database;
    ASSERT_EQ(database.LoadExistingDatabases(), hr::ok);
    std::string value;
    EXPECT_EQ(database.GetRecord(EventKey(last), &value), hr::ok);
    EXPECT_EQ(value, "new");
}

TEST(Coordinator, StopWaitsForNoOtherProcessAndCountsWhatIsLost) {
    const test::FakeClock clock;
    RunningStore store;
    const test::OtherProcess reader(store.directory.Folder("20261112"));
    store.Start();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 20 * 500; ++i)
        ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
    EXPECT_EQ(store.core.Stop(), hr::ok);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10))
        << "a second for each batch would be 20";
    DatabaseErrorTable errors;
    ASSERT_EQ(GetMasterDatabase()->GetDatabaseErrors(&errors), hr::ok);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors.begin()->second.entries[0].count, 20u);
}

TEST(Coordinator, LosesNothingThatWasAcceptedBeforeTheStop) {
    RunningStore store({soon, soon});
    store.Start();
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

TEST(Coordinator, StoppedStoreQueuesForTheNextStartAndReportsWhenFull) {
    test::RecordingReports reports;
    RunningStore store;
    store.Start();
    store.End();
    EXPECT_EQ(store.Fill(RecordKind::silentEnrichment), 20000);
    EXPECT_EQ(store.Insert(silentKey, "{}", RecordKind::silentEnrichment), hr::unexpected);
    const auto& last = reports.At(reports.Count() - 1);
    EXPECT_EQ(last.Label(), "EnqueueForInsertion - Silent Enrichment");
    EXPECT_EQ(last.Details().front().second, "FDR Event Coordinator Thread is stopped.");
    ASSERT_EQ(store.Insert(EventKey(7)), hr::ok);
    store.Start();
    ASSERT_EQ(store.core.Stop(), hr::ok);
    EXPECT_TRUE(store.OnDisk(EventKey(7)));
}

}  // namespace
}  // namespace ZEL
