#include <gtest/gtest.h>

#include "common/itobbaseimpl.h"
#include "support/fakesettings.h"
#include "support/runningstore.h"

namespace ZEL {
namespace {

using test::EventKey;
using test::FakeSettings;
using test::RunningStore;
using Writes = std::vector<FakeSettings::Write>;

const std::wstring honored = L"ZEL\\Opstate\\EMAQ\\MaxDBSizeHonored";

// Holds a purge up at its end, where it publishes its outcome.
class Barrier {
public:
    explicit Barrier(FakeSettings& settings) {
        EXPECT_TRUE(arrived_.Create(wm::EventReset::manual) &&
                    open_.Create(wm::EventReset::manual));
        settings.onOpen = [this](const std::wstring& path) {
            if (path != L"ZEL\\Opstate\\EMAQ")
                return;
            arrived_.Set();
            Await(open_);
        };
    }
    void AwaitArrival() { Await(arrived_); }
    void Open() { open_.Set(); }

private:
    static void Await(const wm::EventObject& event) {
        const HANDLE handle = event.Handle();
        EXPECT_EQ(wm::WaitForAny(1, &handle, wm::waitForever), 0u);
    }

    wm::EventObject arrived_, open_;
};

class Purge : public testing::Test {
protected:
    // A folder that the store finds at its start.
    void AddFolder(const std::string& name, std::uint64_t bytes) {
        store.directory.MakeFolder(name);
        store.directory.WriteFile(name + "/a", std::string(bytes, 'x'));
    }

    FakeSettings settings;
    RunningStore store{{5, RunningStore::never}};
};

TEST_F(Purge, OutcomeIsPublishedOncePerChange) {
    AddFolder("20260101", 0x100000);
    AddFolder("20260102", 0x100000);
    store.Start();
    Writes expected{{honored, 1}};
    for (const std::uint32_t limit : {1000u, 2u, 1u, 1u}) {
        EXPECT_EQ(store.core.Purge(limit), hr::ok);
        EXPECT_EQ(settings.Writes(), expected) << limit;
    }
    EXPECT_EQ(store.directory.List(), std::set<std::string>{"20260102"});
    ASSERT_EQ(store.Insert(EventKey(1)), hr::ok);
    ASSERT_EQ(store.core.SetLiveMode(true), hr::ok);
    store.AwaitOnDisk(EventKey(1));
    settings.writeAnswer = TOBERR_FAIL;
    expected.emplace_back(honored, 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(store.core.Purge(0), hr::ok) << "also when the write fails";
        EXPECT_EQ(settings.Writes(), expected) << "which is not tried again";
    }
    EXPECT_TRUE(store.OnDisk(EventKey(1)));
    EXPECT_EQ(settings.putBacks, 1) << "of two writes, one failed";
}

TEST_F(Purge, NoStartedStoreAndAFailureChangeNothing) {
    AddFolder("20260101", 1);
    EXPECT_EQ(store.core.Purge(0), hr::aborted);
    EXPECT_TRUE(store.directory.Exists("20260101"));
    store.Start();
    const std::filesystem::path path = store.directory.Path();
    std::filesystem::rename(path, path.string() + ".away");
    EXPECT_EQ(store.core.Purge(0), hr::ok);
    EXPECT_TRUE(settings.Writes().empty());
    std::filesystem::rename(path.string() + ".away", path);
    EXPECT_EQ(store.core.Purge(0), hr::ok);
    EXPECT_EQ(settings.Writes(), (Writes{{honored, 1}}));
}

TEST_F(Purge, OneAtATimeAndStopDoesNotWaitForIt) {
    AddFolder("20260101", 0x100000);
    store.Start();
    Barrier barrier(settings);
    std::thread caller([&] { EXPECT_EQ(store.core.Purge(1000), hr::ok); });
    barrier.AwaitArrival();
    EXPECT_EQ(store.core.Purge(0), hr::nothingToDo) << "its limit is dropped";
    EXPECT_TRUE(store.directory.Exists("20260101"));
    EXPECT_EQ(store.core.Stop(), hr::ok);
    EXPECT_EQ(store.core.Purge(0), hr::aborted);
    std::thread closing([&] { EXPECT_EQ(store.core.Shutdown(), hr::ok); });
    barrier.Open();
    closing.join();
    caller.join();
    EXPECT_EQ(settings.Writes(), (Writes{{honored, 1}}));
}

TEST_F(Purge, StoreThatIsDestroyedWaitsForItsPurge) {
    Barrier barrier(settings);
    std::weak_ptr<EventStoreImpl> former;
    {
        const auto core = EventStoreImpl::GetInstance();
        former = core;
        ASSERT_EQ(core->Initialize(), hr::ok);
        std::thread([core] { EXPECT_EQ(core->Purge(0), hr::ok); }).detach();
        barrier.AwaitArrival();
        EXPECT_EQ(core->Stop(), hr::ok);
    }
    EXPECT_FALSE(former.expired()) << "its caller keeps it";
    barrier.Open();
    while (!former.expired())
        std::this_thread::yield();
}

}  // namespace
}  // namespace ZEL
