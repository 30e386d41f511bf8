#include <gtest/gtest.h>

#include "common/boundary.h"
#include "support/client.h"
#include "support/failingmemory.h"
#include "support/storefixture.h"
#include "zelstore/core/incomingqueue.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"
#include "zelstore/jobs/countedevent.h"

namespace ZEL {
namespace {

// Runs an operation with memory for 0, 1, 2... allocations until none fails, and gives the number
// of runs that lacked some.
template <typename Operation>
int Starve(Operation&& operation) {
    for (int allowed = 0;; ++allowed) {
        bool starved = false;
        {
            const test::FailingMemory memory(allowed);
            operation();
            starved = memory.Failed();
        }
        if (!starved)
            return allowed;
    }
}

TEST(Memory, WithoutItNothingEndsTheProcess) {
    const test::LoadedComponent component;
    const test::TempStore directory;
    const auto factory = component.Factory();
    const std::uint32_t objects = component.getObjectCount();
    // A store whose core could not be made is an object all the same, and says so.
    int halfMade = 0;
    const int points = Starve([&] {
        CountedPtr<IEventStore7> store;
        if (Succeeded(factory->CreateInstance(iidEventStore7, store.ReceiveVoid())))
            halfMade += store->Stop() == hr::outOfMemory ? 1 : 0;
    });
    EXPECT_GE(points, 3);
    EXPECT_GE(halfMade, 1);
    EXPECT_EQ(component.getObjectCount(), objects);

    TobResult last = TOBERR_FAIL;
    Starve([&] {
        CountedPtr<ISettingsManager> settings;
        last = wm::OpenSettings(settings.Receive());
    });
    EXPECT_EQ(last, TOB_OK);

    const auto record = test::Str(test::FileEvent("2026-05-01T10:00:00.000Z", 1));
    const auto store = component.Store();
    Starve([&] {
        CountedPtr<IStringValue> key;
        IgnoreResult(store->MakeKey(record.Get(), keyKindEvent, key.Receive()), "starved");
    });
}

TEST(Memory, MonitorStartsOrSaysWhyNot) {
    const test::LoadedComponent component;
    CountedPtr<IMonitorLifetime> monitor;
    ASSERT_EQ(component.Factory(diskSpaceMonitorObjectId)
                  ->CreateInstance(iidMonitorLifetime, monitor.ReceiveVoid()),
              TOB_OK);
    HRESULT last = hr::fail;
    const int points = Starve([&] {
        last = monitor->Start();
        IgnoreResult(monitor->Stop(), "always succeeds");
        IgnoreResult(monitor->Wait(), "always succeeds");
    });
    EXPECT_GE(points, 2);
    EXPECT_EQ(last, hr::ok);
}

TEST(Memory, QueueKeepsSmallEntriesOfAFewWrittenBatchesUntilItRunsEmpty) {
    IncomingQueue queue;
    BatchList taken;
    // Whether the first record of a batch needs no memory but the batch's and its place in the
    // list.
    const auto usesSpentEntry = [&] {
        HRESULT result = hr::fail;
        bool wake = false;
        {
            const test::FailingMemory memory(2);
            result = AtBoundary([&] { return queue.EnqueueEventData("k", "v", &wake); });
        }
        queue.DequeueBatches(taken, Flush::fullBatches);
        if (Succeeded(result))
            queue.DequeueBatches(taken, Flush::everything);
        return Succeeded(result);
    };
    EXPECT_FALSE(usesSpentEntry());
    queue.Recycle({{"k", std::string(5000, 'x')}});
    EXPECT_FALSE(usesSpentEntry()) << "it was large";
    for (std::size_t i = 0; i <= IncomingQueue::mostSpent; ++i)
        queue.Recycle({{"k", "v"}});
    for (std::size_t i = 0; i < IncomingQueue::mostSpent; ++i)
        EXPECT_TRUE(usesSpentEntry()) << i;
    EXPECT_FALSE(usesSpentEntry());
    queue.Recycle({{"k", "v"}});
    queue.DequeueBatches(taken, Flush::everything);
    EXPECT_FALSE(usesSpentEntry()) << "the queue was empty when all was asked for";
}

TEST(Memory, JobsKeepWhatTheyHad) {
    CountedPtr<IJobManager> manager;
    CountedPtr<IJob> job;
    CountedPtr<IJobDefinition> definition;
    ASSERT_EQ(wm::OpenJobManager(manager.Receive()), TOB_OK);
    ASSERT_EQ(manager->GetJob(storeJobId, job.Receive()), hr::ok);
    HRESULT result = hr::ok;
    const auto without = [&](int allowed, auto&& operation) {
        const test::FailingMemory memory(allowed);
        result = operation();
    };
    without(0, [&] { return job->SetTriggerValue(0, jobTrigger::makeUp, {{1, 0, 0}}); });
    EXPECT_EQ(result, hr::outOfMemory);
    ASSERT_EQ(job->SetTriggerValue(0, jobTrigger::makeUp, {{1, 0, 0}}), hr::ok);
    without(1, [&] { return job->Save(); });
    EXPECT_EQ(result, hr::outOfMemory);
    without(0, [&] { return job->Reschedule(9, 9, jobRescheduleBoth); });
    EXPECT_EQ(result, hr::outOfMemory);
    JobTriggerValue value;
    ASSERT_EQ(manager->GetDefinition(storeJobId, definition.Receive()), hr::ok);
    ASSERT_EQ(definition->GetTriggerValue(0, jobTrigger::makeUp, &value), hr::ok);
    EXPECT_EQ(value.part[0], 0u);
    ASSERT_EQ(job->Save(), hr::ok);
    ASSERT_EQ(job->Start(0), hr::ok);
}

TEST(Memory, WaitsNeedNone) {
    wm::EventObject first, second;
    ASSERT_TRUE(first.Create(wm::EventReset::automatic) &&
                second.Create(wm::EventReset::automatic));
    const HANDLE handles[] = {first.Handle(), second.Handle()};
    second.Set();
    CountedEvent counted;
    ASSERT_TRUE(counted.Create());
    const test::FailingMemory memory(0);
    const std::uint32_t set = wm::WaitForAny(2, handles, wm::waitForever);
    const std::uint32_t none = wm::WaitForAny(2, handles, 1);
    const HRESULT behind = counted.WaitBehind(7, nullptr);
    const bool failed = memory.Failed();
    EXPECT_EQ(set, 1u);
    EXPECT_EQ(none, wm::waitTimedOut);
    EXPECT_EQ(behind, hr::ok);
    EXPECT_FALSE(failed);
}

}  // namespace
}  // namespace ZEL
