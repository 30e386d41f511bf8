#include <gtest/gtest.h>

#include <thread>

#include "common/eventobject.h"
#include "subscriber.h"
#include "zelstore/diskmonitor/diskspacemonitorevent.h"
#include "zelstore/diskmonitor/subscriptionmanager.h"

namespace ZEL {
namespace {

using test::States;
using test::Subscriber;
using test::toResume;
using test::toStop;

// What subscribers do while they are called. The volume is full, then has room.
class Reentrance : public test::MonitorTest {
protected:
    void Cross() {
        Look(0);
        Look(9999 * test::megabyte);
    }

    const States all{toResume, toStop, toResume};
};

TEST_F(Reentrance, UnsubscribesItselfAndThoseBehindIt) {
    const auto victim = Subscriber::Make();
    const auto leaver = Subscriber::Make();
    leaver->onEvent = [&](DiskState state) {
        if (state != toStop)
            return;
        EXPECT_EQ(monitor->Unsubscribe(leaver.Get()), hr::ok);
        EXPECT_EQ(monitor->Unsubscribe(victim.Get()), hr::ok);
    };
    for (const auto& subscriber : {leaver, victim, last})
        EXPECT_EQ(Subscribe(subscriber), hr::ok);
    Cross();
    EXPECT_EQ(leaver->Heard(), (States{toResume, toStop}));
    EXPECT_EQ(victim->Heard(), States{toResume}) << "removed ahead of its turn";
    EXPECT_EQ(last->Heard(), all);
    EXPECT_EQ(victim->References(), 1);
}

TEST_F(Reentrance, WhoComesDuringACallHearsBothStates) {
    const auto guest = Subscriber::Make();
    const auto host = Subscriber::Make([&](DiskState state) {
        EXPECT_EQ(monitor->SetThresholds(2500, 10), hr::ok);
        EXPECT_EQ(monitor->Start(), hr::ok);
        EXPECT_EQ(monitor->Stop(), hr::ok);
        if (state == toStop) {
            EXPECT_EQ(Subscribe(guest), hr::ok);
        }
        throw 7;  // which the others don't feel
    });
    EXPECT_EQ(Subscribe(host), hr::ok);
    EXPECT_EQ(Subscribe(last), hr::ok);
    Cross();
    EXPECT_EQ(guest->Heard(), all) << "the former state, then the new one";
    EXPECT_EQ(host->Heard(), all);
    EXPECT_EQ(last->Heard(), all);
}

TEST_F(Reentrance, SubscribesAnewInItsCall) {
    int rounds = 0;
    const auto restless = Subscriber::Make();
    restless->onEvent = [&](DiskState) {
        if (++rounds != 2)
            return;
        EXPECT_EQ(monitor->Unsubscribe(nullptr), hr::ok);
        EXPECT_EQ(Subscribe(restless), hr::ok);
    };
    EXPECT_EQ(Subscribe(restless), hr::ok);
    Cross();
    EXPECT_EQ(restless->Heard(), (States{toResume, toStop, toResume, toStop, toResume}));
}

TEST_F(Reentrance, OtherThreadsWaitForTheEndOfTheCalls) {
    std::atomic<bool> called{false};
    std::thread leaving, coming;
    const auto late = Subscriber::Make();
    const auto slow = Subscriber::Make();
    slow->onEvent = [&](DiskState state) {
        if (state != toStop)
            return;
        leaving = std::thread([&] {
            EXPECT_EQ(monitor->Unsubscribe(last.Get()), hr::ok);
            EXPECT_TRUE(called) << "nobody is called any more when it has returned";
        });
        coming = std::thread([&] { EXPECT_EQ(Subscribe(late), hr::ok); });
    };
    last->onEvent = [&](DiskState state) { called = called || state == toStop; };
    EXPECT_EQ(Subscribe(slow), hr::ok);
    EXPECT_EQ(Subscribe(last), hr::ok);
    Look(0);
    leaving.join();
    coming.join();
    EXPECT_EQ(late->Heard(), States{toStop});
    EXPECT_EQ(last->References(), 1);
}

TEST_F(Reentrance, LetsTheMonitorGoInItsCall) {
    monitor = CountedPtr<DiskSpaceMonitor>(new DiskSpaceMonitor(1));
    wm::EventObject started, gone;
    ASSERT_TRUE(started.Create(wm::EventReset::manual) && gone.Create(wm::EventReset::manual));
    const auto killer = Subscriber::Make([&](DiskState state) {
        if (state != toStop)
            return;
        const HANDLE handle = started.Handle();
        EXPECT_EQ(wm::WaitForAny(1, &handle, wm::waitForever), 0u);
        EXPECT_EQ(monitor->Stop(), hr::ok);
        EXPECT_EQ(monitor->Wait(), hr::ok) << "not for itself";
        monitor.Reset();
        gone.Set();
    });
    EXPECT_EQ(Subscribe(killer), hr::ok);
    EXPECT_EQ(Subscribe(last), hr::ok);
    ASSERT_EQ(monitor->Start(), hr::ok);
    started.Set();
    const HANDLE handle = gone.Handle();
    ASSERT_EQ(wm::WaitForAny(1, &handle, wm::waitForever), 0u);
    while (killer->References() > 1 || last->References() > 1)
        std::this_thread::yield();
    EXPECT_EQ(last->Heard(), States{toResume});
}

TEST(Subscriptions, ObjectsAreToldApartByWhatTheyAnswer) {
    SubscriptionManager list;
    const auto event = CountedPtr<IMonitorEvent>(new DiskSpaceMonitorEvent(toStop));
    const auto first = Subscriber::Make(), second = Subscriber::Make();
    EXPECT_EQ(list.Add(nullptr), hr::invalidArgument);
    EXPECT_EQ(list.Add(first.Get()), hr::ok);
    EXPECT_FALSE(list.IsSubscribed(second.Get()));
    list.Notify(event.Get(), second.Get());
    EXPECT_TRUE(first->Heard().empty()) << "only the target is called";
    EXPECT_EQ(second->Heard(), States{toStop});
    list.Remove(second.Get());
    EXPECT_TRUE(list.IsSubscribed(first.Get())) << "an unknown one changes nothing";

    const auto mute = Subscriber::Make(), muter = Subscriber::Make();
    mute->answers = muter->answers = false;
    EXPECT_EQ(list.Add(mute.Get()), hr::ok);
    EXPECT_EQ(list.Add(muter.Get()), hr::fail) << "those who don't answer are all alike";
    list.Remove(nullptr);
    EXPECT_EQ(first->References() + mute->References(), 2);
}

}  // namespace
}  // namespace ZEL
