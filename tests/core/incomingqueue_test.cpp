#include "zelstore/core/incomingqueue.h"

#include <gtest/gtest.h>

#include <string>

#include "support/storefixture.h"

namespace ZEL {
namespace {

std::string Key(int i) {
    return "p" + std::to_string(1000000 + i);
}

struct Enqueued {
    HRESULT result;
    bool wake;
};

Enqueued Enqueue(IncomingQueue& queue, const std::string& key, const std::string& value = "v") {
    bool wake = false;
    const HRESULT result = queue.EnqueueEventData(key, value, &wake);
    return {result, wake};
}

// Adds records until one is refused, and returns how many were taken.
int Fill(IncomingQueue& queue) {
    int taken = 0;
    while (Succeeded(Enqueue(queue, Key(taken)).result))
        ++taken;
    return taken;
}

TEST(IncomingQueue, WakesWithTheFirstRecordThatNoLongerFits) {
    IncomingQueue queue;
    for (int i = 0; i < 500; ++i) {
        const Enqueued added = Enqueue(queue, Key(i));
        ASSERT_EQ(added.result, hr::ok);
        ASSERT_FALSE(added.wake) << i;
    }
    EXPECT_EQ(queue.Size(), 1u);
    EXPECT_TRUE(Enqueue(queue, Key(500)).wake);
    EXPECT_FALSE(Enqueue(queue, Key(501)).wake);

    BatchList full;
    ASSERT_EQ(queue.DequeueBatches(full, false), hr::ok);
    ASSERT_EQ(full.size(), 1u);
    EXPECT_EQ(full.front()->Size(), 500u);
    BatchList rest;
    ASSERT_EQ(queue.DequeueBatches(rest, false), hr::ok);
    EXPECT_TRUE(rest.empty());
    ASSERT_EQ(queue.DequeueBatches(rest, true), hr::ok);
    EXPECT_EQ(rest.front()->Size(), 2u);
}

TEST(IncomingQueue, CapacitiesRoundDownButNeverBelowOneBatch) {
    const struct {
        std::uint32_t capacity;
        int taken;
    } rows[] = {{0, 500}, {499, 500}, {999, 500}, {1000, 1000}, {20499, 20000}};
    for (const auto& row : rows) {
        IncomingQueue queue;
        queue.SetCapacity(row.capacity);
        EXPECT_EQ(Fill(queue), row.taken) << row.capacity;
        const Enqueued refused = Enqueue(queue, Key(row.taken));
        EXPECT_EQ(refused.result, hr::fail);
        EXPECT_TRUE(refused.wake);
        EXPECT_EQ(Enqueue(queue, Key(row.taken - 1), "again").result, hr::fail);
    }
}

TEST(IncomingQueue, ReplacesWithinTheOpenBatchOnly) {
    IncomingQueue queue;
    IgnoreResult(Enqueue(queue, "k", "old").result, "first");
    IgnoreResult(Enqueue(queue, "k", "new").result, "second");
    BatchList out;
    ASSERT_EQ(queue.DequeueBatches(out, true), hr::ok);
    EXPECT_EQ(out.front()->Records(), (RecordBatch{{"k", "new"}}));
}

TEST(IncomingQueue, ReportsFullnessOnceInHalfAnHourForAllQueues) {
    test::FakeClock clock;
    test::RecordingReports reports;
    IncomingQueue first, second;
    first.SetCapacity(500);
    second.SetCapacity(500);
    clock.SetTick(1800000);
    Fill(first);
    EXPECT_EQ(reports.Count(), 0u) << "the first half hour after the start is silent";
    clock.SetTick(1800001);
    Fill(first);
    Fill(second);
    ASSERT_EQ(reports.Count(), 1u);
    EXPECT_EQ(reports.At(0).Code(), hr::fail);
    EXPECT_EQ(reports.At(0).Label(), "EnqueueEventData");
    EXPECT_EQ(reports.At(0).Details().front().second,
              "Max capacity reached, can not add event to the queue.");
    clock.SetTick(3600001);
    Fill(second);
    EXPECT_EQ(reports.Count(), 1u);
    clock.SetTick(3600002);
    Fill(second);
    EXPECT_EQ(reports.Count(), 2u);
}

}  // namespace
}  // namespace ZEL
