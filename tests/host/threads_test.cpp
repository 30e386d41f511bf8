#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "common/eventobject.h"
#include "common/lock.h"
#include "common/waittimer.h"
#include "common/workerthread.h"

namespace wm {
namespace {

using ZEL::HANDLE;

void Await(const EventObject& event) {
    const HANDLE handle = event.Handle();
    ASSERT_EQ(WaitForAny(1, &handle, waitForever), 0u);
}

TEST(Events, WaitReportsAndTakesTheLowestOne) {
    EventObject first, second, kept;
    ASSERT_TRUE(first.Create(EventReset::automatic) &&
                second.Create(EventReset::automatic, EventState::set) &&
                kept.Create(EventReset::manual, EventState::set));
    const HANDLE handles[] = {first.Handle(), second.Handle(), kept.Handle()};
    EXPECT_EQ(WaitForAny(3, handles, 0), 1u);
    EXPECT_EQ(WaitForAny(3, handles, 0), 2u);
    EXPECT_EQ(WaitForAny(3, handles, waitForever), 2u) << "a manual-reset event stays set";
    first.Set();
    first.Set();
    kept.Reset();
    EXPECT_EQ(WaitForAny(3, handles, 0), 0u);
    EXPECT_EQ(WaitForAny(3, handles, 1), waitTimedOut) << "two settings count as one";
}

TEST(Events, BadHandlesFailTheWait) {
    EventObject event;
    EXPECT_FALSE(event.Set());
    ASSERT_TRUE(event.Create(EventReset::manual, EventState::set));
    const HANDLE good = event.Handle();
    for (const HANDLE bad : {HANDLE(nullptr), ZEL::InvalidHandle(), HANDLE(&event)}) {
        const HANDLE handles[] = {good, bad};
        EXPECT_EQ(WaitForAny(2, handles, 0), waitFailed);
    }
    EXPECT_EQ(WaitForAny(mostWaitHandles + 1, &good, 0), waitFailed);
    event.Close();
    EXPECT_EQ(WaitForAny(1, &good, 0), waitFailed);
    EXPECT_FALSE(SetEventHandle(good));
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(event.Create(EventReset::manual, EventState::set));
        EXPECT_EQ(WaitForAny(1, &good, 0), waitFailed) << "a stale handle reaches no later event";
    }
}

TEST(Events, EachSettingReachesExactlyOneWaiter) {
    constexpr int settings = 2000;
    EventObject event, taken, stop;
    ASSERT_TRUE(event.Create(EventReset::automatic) && taken.Create(EventReset::automatic) &&
                stop.Create(EventReset::manual));
    std::atomic<int> count{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            const HANDLE handles[] = {stop.Handle(), event.Handle()};
            while (WaitForAny(2, handles, waitForever) == 1) {
                ++count;
                taken.Set();
            }
        });
    for (int i = 0; i < settings; ++i) {
        event.Set();
        Await(taken);
    }
    stop.Set();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, settings);
}

TEST(Events, ClosedEventStaysAliveForItsWaiter) {
    auto event = std::make_unique<EventObject>();
    EventObject other, entered;
    ASSERT_TRUE(event->Create(EventReset::automatic) && other.Create(EventReset::automatic) &&
                entered.Create(EventReset::automatic));
    std::thread waiter([&, handle = event->Handle()] {
        const HANDLE handles[] = {handle, other.Handle()};
        entered.Set();
        const std::uint32_t result = WaitForAny(2, handles, waitForever);
        EXPECT_TRUE(result == 1 || result == waitFailed) << "failed if closed ahead of the wait";
    });
    Await(entered);
    event.reset();
    other.Set();
    waiter.join();
}

TEST(WorkerThread, RunsAgainAndTellsItsResult) {
    WorkerThread thread;
    EventObject go;
    ASSERT_TRUE(go.Create(EventReset::automatic));
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(thread.Start([&] {
            Await(go);
            EXPECT_TRUE(thread.IsCurrentThread());
            thread.Wait();  // on itself: returns at once
            return ZEL::hr::aborted;
        }));
        thread.SetName("a name that is longer than the system's");
        EXPECT_FALSE(thread.Start([] { return ZEL::hr::ok; })) << "one thread at a time";
        EXPECT_TRUE(thread.IsRunning());
        go.Set();
        thread.Wait();
        EXPECT_FALSE(thread.IsRunning());
        EXPECT_EQ(thread.ExitResult(), ZEL::hr::aborted);
    }
    ASSERT_TRUE(thread.Start([]() -> ZEL::HRESULT { throw 1; }));
    thread.Wait();
    EXPECT_EQ(thread.ExitResult(), ZEL::hr::unexpected);
}

TEST(WorkerThread, MayBeDestroyedByItsOwnBody) {
    EventObject done;
    ASSERT_TRUE(done.Create(EventReset::automatic));
    auto thread = std::make_shared<WorkerThread>();
    WorkerThread& started = *thread;
    ASSERT_TRUE(started.Start([held = std::move(thread), &done]() mutable {
        held.reset();
        done.Set();
        return ZEL::hr::ok;
    }));
    Await(done);
}

TEST(Timer, TicksUntilItIsStopped) {
    EventObject tick;
    ASSERT_TRUE(tick.Create(EventReset::automatic));
    RegisteredWaitTimer timer;
    EXPECT_FALSE(timer.Start(1)) << "nothing to call";
    std::atomic<int> ticks{0};
    ASSERT_TRUE(timer.Create([&] {
        ++ticks;
        tick.Set();
        throw 1;  // a callback's fault is its own
    }));
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(timer.Start(1));
        Await(tick);
        Await(tick);
        timer.Stop();
        const int atStop = ticks;
        const HANDLE handle = tick.Handle();
        WaitForAny(1, &handle, 10);
        EXPECT_EQ(ticks, atStop) << "no tick behind the stop";
    }
    ASSERT_TRUE(timer.Create([&] {
        timer.Stop();
        tick.Set();
    }));
    tick.Reset();
    ASSERT_TRUE(timer.Start(1));
    Await(tick);
}

#ifdef WM_CHECK_LOCK_RANKS
// The analysis can't know that the lock may be taken again.
void TakeInOrder() NO_THREAD_SAFETY_ANALYSIS {
    Lock queue(LockRank::queue), batch(LockRank::batch);
    RecursiveLock state(LockRank::state);
    const Hold first(state);
    const Hold again(state);
    const Hold outer(queue);
    const Hold inner(batch);
}

TEST(LockRanksDeathTest, InversionEndsTheProcess) {
    Lock queue(LockRank::queue), batch(LockRank::batch), sibling(LockRank::queue);
    TakeInOrder();
    {
        const Hold outer(batch);
        EXPECT_DEATH(const Hold inner(queue), "rank 70 .* asked for while rank 75");
    }
    const Hold outer(queue);
    EXPECT_DEATH(const Hold inner(sibling), "rank 70 .* asked for while rank 70");
}
#endif

}  // namespace
}  // namespace wm
