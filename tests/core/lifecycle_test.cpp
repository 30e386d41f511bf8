#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "common/itobbaseimpl.h"
#include "support/fakesettings.h"
#include "support/runningstore.h"
#include "zelstore/eventsquery.h"

namespace ZEL {
namespace {

using test::EventKey;
using test::RecordingCallback;
using test::RunningStore;
using test::Str;

const char* const everything =
    R"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}})";

// Queries on the caller's thread and on one of the store.
class Asking : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(asked->Initialize(), hr::ok);
        store.Start();
        for (int i = 0; i < rows; ++i)
            ASSERT_EQ(store.Insert(EventKey(i)), hr::ok);
        ASSERT_EQ(store.core.Stop(), hr::ok);
    }
    std::size_t Ask(const std::function<void()>& inFirstBatch = nullptr) {
        RecordingCallback callback;
        callback.onBatch = [&](std::size_t batch) {
            if (batch == 1 && inFirstBatch)
                inFirstBatch();
        };
        wm::EventObject stop;
        EXPECT_TRUE(stop.Create(wm::EventReset::automatic));
        EXPECT_EQ(store.core.Query(Str(everything).Get(), &callback, stop.Handle(), nullptr),
                  hr::ok);
        return callback.texts.size();
    }
    // Has `inFirstBatch` run on the thread of a query.
    void Begin(RecordingCallback& callback, const std::function<void()>& inFirstBatch) {
        callback.onBatch = [inFirstBatch](std::size_t batch) {
            if (batch == 1)
                inFirstBatch();
        };
        ASSERT_EQ(query.Start(Str(everything).Get(), &callback), hr::ok);
    }

    static constexpr int rows = 3000;
    // The core that queries of the store's threads reach. It shares database and queries with the
    // store's own.
    const std::shared_ptr<EventStoreImpl> asked = EventStoreImpl::GetInstance();
    RunningStore store;
    EventsQuery query;
};

TEST_F(Asking, StopEndsTheWalksThatRunAndNoLaterOne) {
    EXPECT_EQ(Ask(), 3000u) << "the store was stopped before";
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    EXPECT_EQ(Ask(), 3000u);
    // How soon depends on how long the stop took.
    EXPECT_LT(Ask([&] { EXPECT_EQ(store.core.Stop(), hr::ok); }), 1000u);
    EXPECT_EQ(Ask(), 3000u);
}

TEST_F(Asking, ShutdownWaitsForAQueryThatEndedItself) {
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    std::atomic<bool> hasLeft{false}, isClosing{false}, isOver{false};
    RecordingCallback callback;
    callback.onEnd = [&] {
        for (int i = 0; i < 10000; ++i)
            std::this_thread::yield();
        isOver = true;
    };
    Begin(callback, [&] {
        EXPECT_EQ(query.StopAndWait(), hr::ok);
        hasLeft = true;
        while (!isClosing)
            std::this_thread::yield();
    });
    while (!hasLeft)
        std::this_thread::yield();
    EXPECT_EQ(store.core.Stop(), hr::ok);
    isClosing = true;
    EXPECT_EQ(store.core.Shutdown(), hr::ok);
    EXPECT_TRUE(isOver);
}

TEST_F(Asking, CallbackMayDoAllWhileAShutdownWaitsForItsQuery) {
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    std::atomic<bool> hasBegun{false}, isClosing{false}, isOver{false};
    RecordingCallback callback;
    callback.onEnd = [&] { isOver = true; };
    Begin(callback, [&] {
        hasBegun = true;
        while (!isClosing)
            std::this_thread::yield();
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(Succeeded(store.core.Initialize()));
            EXPECT_EQ(store.Insert(EventKey(rows + i)), hr::ok);
            EXPECT_EQ(store.core.Stop(), hr::ok);
        }
        EXPECT_EQ(store.core.Shutdown(), hr::ok);
    });
    while (!hasBegun)
        std::this_thread::yield();
    EXPECT_EQ(store.core.Stop(), hr::ok);
    isClosing = true;
    EXPECT_EQ(store.core.Shutdown(), hr::ok);
    EXPECT_TRUE(isOver);
    EXPECT_EQ(store.StopAndCount(), rows + 2u);
}

TEST(Lifecycle, StartsStopsAndShutDownsOfManyThreadsLoseNothing) {
    RunningStore store;
    constexpr int hosts = 4, rounds = 25;
    std::vector<std::thread> threads;
    for (int host = 0; host < hosts; ++host)
        threads.emplace_back([&, host] {
            for (int i = host * rounds; i < (host + 1) * rounds; ++i) {
                EXPECT_TRUE(Succeeded(store.core.Initialize()));
                EXPECT_EQ(store.Insert(EventKey(i)), hr::ok);
                EXPECT_EQ(store.core.Stop(), hr::ok);
                EXPECT_EQ(store.core.Shutdown(), hr::ok);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(store.core.Initialize(), hr::ok) << "all have stopped it";
    EXPECT_EQ(store.StopAndCount(), static_cast<std::size_t>(hosts * rounds));
}

TEST(Lifecycle, QueueLengthComesFromTheSettingsForEventsAlone) {
    const std::pair<std::uint32_t, int> rows[] = {{0, 20000}, {1000, 1000}};
    for (const auto& [setting, events] : rows) {
        test::FakeSettings settings;
        settings.Set(L"ZEL\\Settings\\FDR\\MAX_INCOMING_QUEUE_LENGTH", setting);
        RunningStore store;
        store.Start();
        store.End();
        EXPECT_EQ(store.Fill(), events);
        EXPECT_EQ(store.Fill(RecordKind::silentEnrichment), 20000);
    }
}

TEST(Lifecycle, NoDataDirectoryFailsTheStart) {
    RunningStore store;
    wm::SetPathToken(L"%ZELDataStore%", L"");
    test::SetEnvironment("ZELDataStore", "");
    EXPECT_EQ(store.core.Initialize(), hr::fail);
    wm::SetPathToken(L"%ZELDataStore%", store.directory.WidePath());
    store.Start();
}

}  // namespace
}  // namespace ZEL
