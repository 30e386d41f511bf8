#include <gtest/gtest.h>

#include <thread>

#include "subscriber.h"
#include "zelstore/diskmonitor/monitorsettings.h"

namespace ZEL {
namespace {

using test::FakeSettings;
using test::megabyte;
using test::States;
using test::Subscriber;
using test::toResume;
using test::toStop;
using DiskMonitor = test::MonitorTest;
using Writes = std::vector<FakeSettings::Write>;

const std::wstring key = L"ZEL\\Settings\\DiskMonitor\\";

// A volume whose room a test computes.
class ComputedVolume final : public wm::IFreeSpace {
public:
    explicit ComputedVolume(std::function<std::uint64_t(const std::wstring&)> bytesOf)
        : bytesOf_(std::move(bytesOf)) {
        wm::SetFreeSpace(this);
    }
    ~ComputedVolume() { wm::SetFreeSpace(nullptr); }
    HRESULT AvailableBytes(const std::wstring& path, std::uint64_t* bytes) noexcept override {
        *bytes = bytesOf_(path);
        return hr::ok;
    }

private:
    const std::function<std::uint64_t(const std::wstring&)> bytesOf_;
};

CountedPtr<DiskSpaceMonitor> MakeMonitor(std::uint32_t periodMs = 3600000) {
    return CountedPtr<DiskSpaceMonitor>(new DiskSpaceMonitor(periodMs));
}

TEST(Thresholds, ResumeThresholdIsReckonedWithSinglePrecision) {
    const struct {
        std::uint32_t stop, percentage, expected;
    } rows[] = {
        {2500, 10, 2750},          {1, 99, 1},         {3333, 33, 4432}, {16777217, 0, 16777216},
        {123456789, 7, 132098768}, {4294967295, 0, 0},  // rounded up to 2 to the power of 32
    };
    for (const auto& row : rows)
        EXPECT_EQ(ResumeThreshold({row.stop, row.percentage}), row.expected)
            << row.stop << " " << row.percentage;
}

TEST_F(DiskMonitor, AnnouncesEachCrossingOnce) {
    const struct {
        MonitorThresholds thresholds;
        std::vector<std::uint64_t> freeBytes;
        States heard;  // behind the first, which is the state at the subscription
    } rows[] = {
        {{2500, 10}, {2500 * megabyte, 9999 * megabyte}, {}},
        {{2500, 10}, {2500 * megabyte - 1, 0, 2000 * megabyte}, {toStop}},
        {{2500, 10}, {0, 2750 * megabyte - 1}, {toStop}},
        {{2500, 10}, {0, 2750 * megabyte, 2750 * megabyte}, {toStop, toResume}},
        {{2500, 10}, {0, 2750 * megabyte, 2500 * megabyte, 1}, {toStop, toResume, toStop}},
        {{100, 0}, {99 * megabyte, 100 * megabyte, 99 * megabyte}, {toStop, toResume, toStop}},
        {{0, 0}, {0, 0}, {}},
    };
    for (const auto& row : rows) {
        monitor = MakeMonitor();
        const auto& [stop, percentage] = row.thresholds;
        ASSERT_EQ(monitor->SetThresholds(stop, percentage), hr::ok);
        const auto subscriber = Subscriber::Make();
        ASSERT_EQ(Subscribe(subscriber), hr::ok);
        for (const std::uint64_t bytes : row.freeBytes)
            Look(bytes);
        States expected{toResume};
        expected.insert(expected.end(), row.heard.begin(), row.heard.end());
        EXPECT_EQ(subscriber->Heard(), expected) << row.freeBytes.front();
    }
}

TEST_F(DiskMonitor, LateSubscriberHearsTheStateAtOnce) {
    const auto early = Subscriber::Make();
    EXPECT_EQ(Subscribe(early), hr::ok);
    Look(0);
    EXPECT_EQ(Subscribe(last), hr::ok);
    EXPECT_EQ(Subscribe(last), hr::fail);
    EXPECT_EQ(early->Heard(), (States{toResume, toStop})) << "told alone";
    EXPECT_EQ(last->Heard(), States{toStop}) << "once, also when it asks twice";
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(monitor->Unsubscribe(early.Get()), hr::ok);
    EXPECT_EQ(early->References(), 1);
    Look(2750 * megabyte);
    EXPECT_EQ(early->Heard().size(), 2u);
    EXPECT_EQ(last->Heard(), (States{toStop, toResume}));
    EXPECT_EQ(monitor->Unsubscribe(nullptr), hr::ok);
    EXPECT_EQ(last->References(), 1);
}

TEST_F(DiskMonitor, VolumeThatCantBeAskedChangesNothing) {
    ASSERT_EQ(Subscribe(last), hr::ok);
    volume.SetResult(hr::accessDenied);
    Look(0);
    ASSERT_EQ(reports.Count(), 1u);
    EXPECT_EQ(reports.At(0).Code(), hr::Code(5)) << "the system's own code";
    EXPECT_EQ(last->Heard(), States{toResume});
    volume.SetResult(hr::ok);
    Look(0);
    EXPECT_EQ(last->Heard(), (States{toResume, toStop})) << "the next look tells";
    wm::SetFreeSpace(nullptr);
    monitor->CheckFreeSpace(L"/no such folder");
    EXPECT_EQ(reports.At(1).Code(), hr::Code(3));
}

TEST_F(DiskMonitor, SettingsGiveTheThresholdsAndKeepThem) {
    settings.Set(key + L"StopThreshold", 1000);
    monitor = MakeMonitor();
    EXPECT_EQ(reports.Count(), 0u) << "a value that is not there is no failure";
    ASSERT_EQ(Subscribe(last), hr::ok);
    Look(1000 * megabyte);
    EXPECT_EQ(last->Heard(), States{toResume}) << "exactly the threshold of the settings";

    const Writes both{{key + L"StopThreshold", 1001}, {key + L"ResumePercentage", 20}};
    EXPECT_EQ(monitor->SetThresholds(1001, 20), hr::ok);
    EXPECT_EQ(monitor->SetThresholds(1001, 20), hr::ok);
    EXPECT_EQ(settings.Writes(), both) << "what stands there is not written again";
    EXPECT_EQ(settings.putBacks, 1);
    Look(1000 * megabyte);
    Look(1201 * megabyte);
    EXPECT_EQ(last->Heard(), (States{toResume, toStop, toResume}));

    settings.writeAnswer = TOBERR_ACCESS_DENIED;
    EXPECT_EQ(monitor->SetThresholds(5000, 0), hr::accessDenied);
    settings.openAnswer = TOBERR_FAIL;
    EXPECT_EQ(monitor->SetThresholds(6000, 0), hr::fail);
    EXPECT_EQ(reports.Count(), 2u);
    Look(5999 * megabyte);
    EXPECT_EQ(last->Heard().back(), toStop) << "the thresholds hold all the same";
    MakeMonitor();
    EXPECT_EQ(reports.Count(), 3u) << "settings that can't be read are reported once";
}

TEST(MonitorThread, ThreadWatchesTheVolumeOfTheStore) {
    for (const bool isNamed : {true, false}) {
        FakeSettings settings;
        test::TempStore store;
        const std::wstring expected = isNamed ? store.WidePath() : L"/";
        if (!isNamed)
            wm::SetPathToken(L"%ZELDataStore%", L"");
        std::atomic<std::uint64_t> freeBytes{0};
        const ComputedVolume volume([&](const std::wstring& path) {
            return path == expected ? freeBytes.load() : 9999 * megabyte;
        });
        const auto subscriber = Subscriber::Make();
        auto monitor = MakeMonitor(1);
        ASSERT_EQ(monitor->Subscribe(subscriber.Get()), hr::ok);
        ASSERT_EQ(monitor->Start(), hr::ok);
        ASSERT_EQ(monitor->Start(), hr::ok) << "one thread";
        subscriber->AwaitCount(2);
        freeBytes = 2750 * megabyte;
        subscriber->AwaitCount(3);
        EXPECT_EQ(monitor->Stop(), hr::ok);
        EXPECT_EQ(monitor->Wait(), hr::ok);
        freeBytes = 0;
        EXPECT_EQ(subscriber->Heard(), (States{toResume, toStop, toResume}));
        ASSERT_EQ(monitor->Start(), hr::ok) << "and once more";
        subscriber->AwaitCount(4);
        monitor.Reset();
        EXPECT_EQ(subscriber->References(), 1) << "the last Release ends the thread";
    }
}

TEST(MonitorThread, MayBeEndedByANewSubscriberWhileItAnnounces) {
    FakeSettings settings;
    test::TempStore store;
    std::atomic<std::uint64_t> looks{0};
    const ComputedVolume volume(
        [&](const std::wstring&) { return looks++ % 2 == 0 ? 0 : 9999 * megabyte; });
    const auto monitor = MakeMonitor(1);
    const auto early = Subscriber::Make();
    ASSERT_EQ(monitor->Subscribe(early.Get()), hr::ok);
    ASSERT_EQ(monitor->Start(), hr::ok);
    std::atomic<int> calls{0};
    const auto ender = Subscriber::Make([&](DiskState) {
        if (calls++ != 0)
            return;
        for (const std::uint64_t before = looks; looks == before;)
            std::this_thread::yield();  // the next look leads to an announcement
        EXPECT_EQ(monitor->Stop(), hr::ok);
        EXPECT_EQ(monitor->Wait(), hr::ok);
    });
    EXPECT_EQ(monitor->Subscribe(ender.Get()), hr::ok);
    EXPECT_EQ(ender->Heard().back(), early->Heard().back()) << "the latest state comes last";
}

TEST_F(DiskMonitor, StopWithoutAThreadEndsTheNextOne) {
    ASSERT_EQ(monitor->Start(), hr::ok);
    EXPECT_EQ(monitor->Stop(), hr::ok);
    EXPECT_EQ(monitor->Wait(), hr::ok);
    EXPECT_EQ(monitor->Stop(), hr::ok);
    ASSERT_EQ(monitor->Start(), hr::ok);
    EXPECT_EQ(monitor->Wait(), hr::ok);
}

}  // namespace
}  // namespace ZEL
