#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "databasefixture.h"
#include "zelstore/database/runningwalk.h"

namespace ZEL {
namespace {

using test::RecordingSink;

class ScanTest : public testing::Test {
protected:
    ScanTest() : proxy_(store_.Folder("20261112")) {
        EXPECT_EQ(proxy_.Write(test::Rows(3000)), hr::ok);
        EXPECT_EQ(proxy_.GetInstance(&instance, IfMissing::fail), hr::ok);
        EXPECT_TRUE(stop.Create(wm::EventReset::manual));
        EXPECT_TRUE(pause.Create(wm::EventReset::manual, wm::EventState::set));
    }
    HRESULT Scan(HANDLE stopEvent, HANDLE pauseEvent = nullptr, int from = 0) {
        bool keepGoing = true;
        return instance->Scan(test::Key("2026-11-12", from), &sink, stopEvent, pauseEvent,
                              &keepGoing);
    }

private:
    test::TempStore store_;
    LevelDbInstanceProxy proxy_;

protected:
    std::shared_ptr<LevelDbInstance> instance;
    wm::EventObject stop, pause;
    RecordingSink sink;
};

TEST_F(ScanTest, LooksAtTheEventsBeforeEachThousandthRow) {
    EXPECT_EQ(Scan(stop.Handle(), pause.Handle()), hr::ok);
    EXPECT_EQ(sink.keys.size(), 3000u);
    stop.Set();
    const struct {
        HANDLE stop;
        int from;
        HRESULT expected;
        std::size_t rows;
    } rows[] = {
        {stop.Handle(), 0, hr::aborted, 999}, {stop.Handle(), 2000, hr::aborted, 999},
        {stop.Handle(), 2001, hr::ok, 999},   {stop.Handle(), 3000, hr::ok, 0},
        {nullptr, 0, hr::aborted, 999},       {InvalidHandle(), 0, hr::invalidArgument, 0},
    };
    for (const auto& row : rows) {
        sink.keys.clear();
        EXPECT_EQ(Scan(row.stop, nullptr, row.from), row.expected) << row.from;
        EXPECT_EQ(sink.keys.size(), row.rows) << row.from;
    }
}

TEST_F(ScanTest, AbortReachesEachScanThatRunsAndNoLaterOne) {
    RunningWalk::AbortAll();
    EXPECT_EQ(Scan(stop.Handle()), hr::ok) << "none ran";
    pause.Reset();
    RecordingSink sinks[2];
    std::atomic<int> begun{0};
    std::vector<std::thread> scans;
    for (RecordingSink& each : sinks) {
        each.onRow = [&, first = true](bool*) mutable {
            begun += std::exchange(first, false) ? 1 : 0;
            return RowResult::goOn;
        };
        scans.emplace_back([&] {
            bool keepGoing = true;
            EXPECT_EQ(instance->Scan("p", &each, stop.Handle(), pause.Handle(), &keepGoing),
                      hr::aborted);
            EXPECT_EQ(each.keys.size(), 999u);
        });
    }
    while (begun != 2)
        std::this_thread::yield();
    RunningWalk::AbortAll();
    for (std::thread& scan : scans)
        scan.join();
}

TEST_F(ScanTest, WaitsWhilePausedAndGoesOnOrStops) {
    pause.Reset();
    for (const bool stopped : {false, true}) {
        sink.keys.clear();
        HRESULT result = hr::unexpected;
        std::thread scan([&] { result = Scan(stop.Handle(), pause.Handle()); });
        stopped ? stop.Set() : pause.Set();
        scan.join();
        EXPECT_EQ(result, stopped ? hr::aborted : hr::ok);
        EXPECT_EQ(sink.keys.size(), stopped ? 999u : 3000u);
        pause.Reset();
    }
}

TEST_F(ScanTest, SinkMayAbandonTheDatabase) {
    sink.onRow = [](bool*) { return RowResult::abandonDatabase; };
    EXPECT_EQ(Scan(stop.Handle()), hr::fail);
    sink.attachAnswer = hr::noInterface;
    EXPECT_EQ(Scan(stop.Handle()), hr::noInterface);
    EXPECT_EQ(sink.keys.size(), 1u);
}

}  // namespace
}  // namespace ZEL
