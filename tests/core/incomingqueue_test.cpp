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
    queue.DequeueBatches(full, Flush::fullBatches);
    ASSERT_EQ(full.size(), 1u);
    EXPECT_EQ(full.front()->Size(), 500u);
    BatchList rest;
    queue.DequeueBatches(rest, Flush::fullBatches);
    EXPECT_TRUE(rest.empty());
    queue.DequeueBatches(rest, Flush::everything);
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

TEST(IncomingQueue, CountsWhatStaysWhenAFewBatchesAreTaken) {
    IncomingQueue queue;
    queue.SetCapacity(2000);
    EXPECT_EQ(Fill(queue), 2000);
    BatchList out;
    queue.DequeueBatches(out, Flush::everything, 3);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out.front()->Records().begin()->first, Key(0));
    EXPECT_EQ(Fill(queue), 1500);
    queue.DequeueBatches(out, Flush::everything);
    EXPECT_EQ(out.size(), 7u);
    EXPECT_EQ(Fill(queue), 2000);
}

TEST(IncomingQueue, ReplacesWithinTheOpenBatchOnly) {
    IncomingQueue queue;
    IgnoreResult(Enqueue(queue, "k", "old").result, "first");
    IgnoreResult(Enqueue(queue, "k", "new").result, "second");
    BatchList out;
    queue.DequeueBatches(out, Flush::everything);
    EXPECT_EQ(out.front()->Records(), (RecordBatch{{"k", "new"}}));
}

TEST(IncomingQueue, IsBoundedInBytesToo) {
    constexpr std::size_t megabyte = std::size_t{1} << 20;
    const std::string large(megabyte, 'x');
    IncomingQueue queue;
    EXPECT_EQ(Enqueue(queue, "huge", std::string(100 * megabyte, 'x')).result, hr::ok)
        << "an empty queue takes one record of any size";
    EXPECT_EQ(Enqueue(queue, "k").result, hr::fail);
    BatchList out;
    queue.DequeueBatches(out, Flush::fullBatches);
    ASSERT_EQ(out.size(), 1u) << "a refusal makes the batch ready";
    queue.Recycle(RecordBatch{{"a", "b"}});
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(Enqueue(queue, Key(0), large).result, hr::ok) << "what is replaced doesn't count";
    int taken = 1;
    while (Succeeded(Enqueue(queue, Key(taken), large).result))
        ++taken;
    EXPECT_EQ(taken, 63) << "the keys count too";
    EXPECT_EQ(Enqueue(queue, "k").result, hr::ok) << "a small one fits";
    const Enqueued refused = Enqueue(queue, Key(taken), large);
    EXPECT_EQ(refused.result, hr::fail);
    EXPECT_TRUE(refused.wake);
    out.clear();
    queue.DequeueBatches(out, Flush::fullBatches);
    EXPECT_EQ(queue.Size(), 0u) << "all is taken to make room";
    std::size_t records = 0;
    for (const auto& batch : out) {
        EXPECT_LE(batch->Held().bytes, EventBatch::mostBytes);
        records += batch->Size();
    }
    EXPECT_EQ(records, 64u);
    EXPECT_EQ(Enqueue(queue, Key(taken), large).result, hr::ok);
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
