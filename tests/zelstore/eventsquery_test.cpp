#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <list>
#include <thread>

#include "support/client.h"
#include "support/storefixture.h"

namespace ZEL {
namespace {

using test::RecordingCallback;
using test::Str;

const char* const everything =
    R"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}})";

// Queries on threads of their own, through the loaded component.
class EventsQueryTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(store->Initialize(), hr::ok); }
    void TearDown() override {
        EXPECT_EQ(store->Stop(), hr::ok);
        EXPECT_EQ(store->Shutdown(), hr::ok);
        store.Reset();
        query.Reset();
        EXPECT_EQ(component.getObjectCount(), 0u);
    }
    // Rows in one folder of its own for each day.
    void Fill(int days, int rowsADay) {
        for (int day = 1; day <= days; ++day) {
            clock_.SetDate(2026, 5, static_cast<std::uint16_t>(day));
            for (int i = 0; i < rowsADay; ++i)
                InsertRow(day, i);
            ASSERT_EQ(store->Stop(), hr::ok);  // writes on this thread
        }
        ASSERT_EQ(store->Initialize(), hr::ok);
    }
    void InsertRow(int day, int i) {
        char key[128];
        std::snprintf(key, sizeof(key),
                      "p<begin_time>2026-05-%02dT10:00:00.000Z<sequence>%010d<object_type>file"
                      "<action>create",
                      day, i);
        ASSERT_EQ(store->Insert(Str(key).Get(), Str("{}").Get()), hr::ok);
    }
    static HRESULT Start(IZelStoreQuery2& query, RecordingCallback& callback,
                         const char* document = everything) {
        return query.Start(Str(document).Get(), &callback);
    }
    static void Await(const std::atomic<bool>& flag) {
        while (!flag)
            std::this_thread::yield();
    }

private:
    test::TempStore directory_;

protected:
    test::FakeClock clock_;
    test::LoadedComponent component;
    CountedPtr<IEventStore7> store = component.Store();
    CountedPtr<IZelStoreQuery2> query = component.Query();
    RecordingCallback got;
    // A query lets its callback go after the end call: they live until Shutdown has waited.
    std::list<std::vector<RecordingCallback>> callbacks;
};

TEST_F(EventsQueryTest, RunsToItsEndAndIsFreedOnce) {
    Fill(2, 150);
    EXPECT_EQ(query->StopAndWait(), hr::nothingToDo) << "never started";
    EXPECT_EQ(query->Start(nullptr, nullptr), hr::invalidArgument);
    ASSERT_EQ(Start(*query, got), hr::ok);
    got.AwaitEnd();
    EXPECT_EQ(query->RequestStop(), hr::ok) << "it stays until it is freed";
    EXPECT_EQ(query->Pause(), hr::ok);
    EXPECT_EQ(query->StopAndWait(), hr::ok);
    EXPECT_EQ(query->StopAndWait(), hr::nothingToDo);
    EXPECT_EQ(got.texts.size(), 300u);
    EXPECT_EQ(got.ends, 1);

    RecordingCallback bad;
    ASSERT_EQ(Start(*query, bad, "no json"), hr::ok) << "one object may start again";
    bad.AwaitEnd();
    EXPECT_EQ(bad.endStatus, hr::unexpected);
    EXPECT_EQ(query->StopAndWait(), hr::ok);
}

TEST_F(EventsQueryTest, AnswersAsTheStoreStands) {
    ASSERT_EQ(store->Stop(), hr::ok);
    const auto refused = [&] {
        EXPECT_EQ(Start(*query, got), hr::fail);
        EXPECT_EQ(query->StopAndWait(), hr::ok);
        EXPECT_EQ(query->RequestStop(), hr::fail);
        EXPECT_EQ(query->Pause(), hr::ok);
        EXPECT_EQ(query->Resume(), hr::ok);
    };
    refused();
    ASSERT_EQ(store->Shutdown(), hr::ok);
    refused();
    EXPECT_EQ(got.ends, 0);
}

TEST_F(EventsQueryTest, PauseHoldsTheWalkAtAThousandthRow) {
    Fill(1, 2500);
    std::atomic<bool> resumed{false}, reached{false};
    got.onBatch = [&](std::size_t batches) {
        EXPECT_TRUE(batches != 1 || query->Pause() == hr::ok);
        reached = batches >= 9;
        EXPECT_TRUE(batches < 10 || resumed) << "the walk did not wait";
    };
    ASSERT_EQ(Start(*query, got), hr::ok);
    Await(reached);
    resumed = true;
    EXPECT_EQ(query->Resume(), hr::ok);
    got.AwaitEnd();
    EXPECT_EQ(got.texts.size(), 2500u);
    EXPECT_EQ(query->StopAndWait(), hr::ok);
}

TEST_F(EventsQueryTest, AStopEndsOneFolderAndThenTheQuery) {
    Fill(3, 1200);
    for (const bool timePasses : {false, true}) {
        RecordingCallback heard;
        heard.onBatch = [&](std::size_t batches) {
            EXPECT_TRUE(batches != 1 || query->RequestStop() == hr::ok);
            if (timePasses && batches == 15)
                clock_.SetTick(500);
        };
        ASSERT_EQ(Start(*query, heard), hr::ok);
        heard.AwaitEnd();
        EXPECT_EQ(heard.texts.size(), timePasses ? 1500u : 999u + 2 * 1200u)
            << "later folders are still visited, for half a second";
        EXPECT_EQ(heard.endStatus, timePasses ? hr::aborted : hr::ok);
        EXPECT_EQ(query->StopAndWait(), hr::ok);
    }
}

TEST_F(EventsQueryTest, ACancelEndsTheQueryAlsoAPausedOne) {
    Fill(3, 1200);
    got.onBatch = [&](std::size_t) { EXPECT_TRUE(Succeeded(query->StopAndWait())); };
    ASSERT_EQ(Start(*query, got), hr::ok);
    got.AwaitEnd();
    EXPECT_EQ(got.texts.size(), 999u);
    EXPECT_EQ(got.endStatus, hr::aborted) << "folders were left out";

    RecordingCallback paused;
    std::atomic<bool> reached{false};
    paused.onBatch = [&](std::size_t batches) {
        EXPECT_EQ(query->Pause(), hr::ok);
        reached = reached || batches == 9;
    };
    ASSERT_EQ(Start(*query, paused), hr::ok);
    Await(reached);
    EXPECT_EQ(query->StopAndWait(), hr::ok);
    EXPECT_EQ(paused.ends, 1);
}

TEST_F(EventsQueryTest, QueriesMayEndEachOtherInCircles) {
    Fill(1, 150);
    for (const std::size_t count : {2U, 3U, 4U}) {
        std::vector<CountedPtr<IZelStoreQuery2>> queries;
        std::vector<RecordingCallback>& heard = callbacks.emplace_back(count);
        std::atomic<std::size_t> inside{0};
        for (std::size_t i = 0; i < count; ++i)
            queries.push_back(component.Query());
        for (std::size_t i = 0; i < count; ++i) {
            heard[i].onBatch = [&, i](std::size_t batches) {
                if (batches != 1)
                    return;
                for (++inside; inside < count;)
                    std::this_thread::yield();
                EXPECT_TRUE(Succeeded(queries[(i + 1) % count]->StopAndWait()));
                if (count == 4 && i == 0) {  // the store's end waits for all
                    EXPECT_EQ(store->Stop(), hr::ok);
                    EXPECT_EQ(store->Shutdown(), hr::ok);
                }
            };
        }
        for (std::size_t i = 0; i < count; ++i)
            ASSERT_EQ(Start(*queries[i], heard[i]), hr::ok);
        for (const RecordingCallback& callback : heard)
            callback.AwaitEnd();
    }
}

TEST_F(EventsQueryTest, CallbacksMayEndTheirQueryAndTheStore) {
    Fill(1, 500);
    std::atomic<bool> reached{false};
    got.onBatch = [&](std::size_t batches) {
        reached = true;
        EXPECT_TRUE(Succeeded(query->StopAndWait())) << batches;
    };
    ASSERT_EQ(Start(*query, got), hr::ok);
    Await(reached);
    EXPECT_EQ(Succeeded(query->StopAndWait()), true) << "from both sides at once";
    got.AwaitEnd();
    EXPECT_EQ(got.texts.size(), 500u);

    RecordingCallback last;
    const auto other = component.Query();
    last.onBatch = [&](std::size_t batches) {
        if (batches != 1)
            return;
        EXPECT_EQ(store->Stop(), hr::ok);
        EXPECT_EQ(store->Shutdown(), hr::ok);
        EXPECT_EQ(other->Start(Str(everything).Get(), &got), hr::fail);
    };
    ASSERT_EQ(Start(*query, last), hr::ok);
    last.AwaitEnd();
    EXPECT_EQ(last.texts.size(), 500u) << "the walk keeps its database";
    EXPECT_EQ(store->Shutdown(), hr::ok) << "waits for the thread, which still has the callback";
}

TEST_F(EventsQueryTest, AStoreMayStartAnewBesideAFormerQuery) {
    Fill(1, 2500);
    std::atomic<bool> reached{false}, restarted{false};
    got.onBatch = [&](std::size_t) {
        reached = true;
        while (!restarted)
            EXPECT_EQ(query->Resume(), hr::ok) << "wants the lock of those who start and stop";
    };
    ASSERT_EQ(Start(*query, got), hr::ok);
    Await(reached);
    ASSERT_EQ(store->Stop(), hr::ok);
    ASSERT_EQ(store->Initialize(), hr::ok);
    restarted = true;
    ASSERT_EQ(store->Stop(), hr::ok);
    EXPECT_EQ(store->Shutdown(), hr::ok) << "waits for the former query, too";
    EXPECT_EQ(got.ends, 1);
}

TEST_F(EventsQueryTest, AThrowingCallbackEndsNothing) {
    Fill(1, 150);
    got.onBatch = [](std::size_t) { throw std::runtime_error("of the host"); };
    got.onEnd = [] { throw 7; };
    ASSERT_EQ(Start(*query, got), hr::ok);
    EXPECT_TRUE(Succeeded(query->StopAndWait()));
    EXPECT_EQ(got.ends, 1);
}

// Many queries, writers and ends of the store at once; what counts is that all of it ends and that
// the sanitizers find nothing. ZEL_STRESS_ROUNDS makes it long.
TEST_F(EventsQueryTest, RunsBesideWritersStopsAndOtherQueries) {
    const char* const asked = std::getenv("ZEL_STRESS_ROUNDS");
    const int rounds = asked != nullptr ? std::atoi(asked) : 3;
    for (int round = 0; round < rounds; ++round) {
        Fill(2, 1100);
        std::atomic<bool> over{false};
        std::vector<std::thread> threads;
        threads.emplace_back([&] {
            for (int i = 0; !over && i < 5000; ++i)
                InsertRow(3, i);
        });
        for (int n = 0; n < 3; ++n) {
            threads.emplace_back([&, n] {
                const auto other = component.Query();
                while (!over) {
                    RecordingCallback heard;
                    if (Failed(Start(*other, heard)))
                        continue;
                    EXPECT_EQ(other->Pause(), hr::ok);
                    EXPECT_TRUE(n == 0 || other->Resume() == hr::ok);
                    IgnoreResult(other->StopAndWait(), "the store may be gone");
                    heard.AwaitEnd();
                    EXPECT_EQ(heard.ends, 1);
                }
            });
        }
        for (int i = 0; i < 5; ++i) {
            RecordingCallback heard;
            EXPECT_EQ(RunQuery(*store, everything, heard), hr::ok);
        }
        EXPECT_EQ(store->Stop(), hr::ok);
        EXPECT_EQ(store->Shutdown(), hr::ok);
        over = true;
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(store->Initialize(), hr::ok);
    }
}

}  // namespace
}  // namespace ZEL
