#include <gtest/gtest.h>

#include <map>

#include "common/itobbaseimpl.h"
#include "runningstore.h"

namespace ZEL {
namespace {

using test::EventKey;
using test::RunningStore;

// The settings service of a host, with one value.
class OneSetting final : public ISettingsManager, public ISettingsKey {
public:
    explicit OneSetting(std::uint32_t value) : value_(value) { wm::SetSettings(this); }
    ~OneSetting() { wm::SetSettings(nullptr); }

    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    TobResult OpenKey(const wchar_t* path, ISettingsKey** key) override {
        EXPECT_EQ(path, std::wstring(L"ZEL\\Settings\\FDR"));
        *key = this;
        return TOB_OK;
    }
    TobResult PutBack(ISettingsKey*) override { return TOB_OK; }
    TobResult ReadNumber(const wchar_t* name, std::uint32_t* value) override {
        EXPECT_EQ(name, std::wstring(L"MAX_INCOMING_QUEUE_LENGTH"));
        *value = value_;
        return TOB_OK;
    }
    TobResult WriteNumber(const wchar_t*, std::uint32_t) override { return TOBERR_FAIL; }

private:
    const std::uint32_t value_;
};

int FillStopped(RunningStore& store, bool silent) {
    int taken = 0;
    while (Succeeded(store.Insert(EventKey(taken), "{}", silent)))
        ++taken;
    return taken;
}

TEST(Lifecycle, QueueLengthComesFromTheSettingsForEventsAlone) {
    const struct {
        std::uint32_t setting;
        int events;
    } rows[] = {{0, 20000}, {1000, 1000}};
    for (const auto& row : rows) {
        OneSetting settings(row.setting);
        RunningStore store;
        ASSERT_EQ(store.core.Initialize(), hr::ok);
        ASSERT_EQ(store.core.Stop(), hr::ok);
        ASSERT_EQ(store.core.Shutdown(), hr::ok);
        EXPECT_EQ(FillStopped(store, false), row.events);
        EXPECT_EQ(FillStopped(store, true), 20000);
    }
}

TEST(Lifecycle, NoDataDirectoryFailsTheStart) {
    RunningStore store;
    wm::SetPathToken(L"%ZELDataStore%", L"");
    ::unsetenv("ZELDataStore");
    EXPECT_EQ(store.core.Initialize(), hr::fail);
    wm::SetPathToken(L"%ZELDataStore%", store.directory.WidePath());
    EXPECT_EQ(store.core.Initialize(), hr::ok) << "the next attempt starts afresh";
}

TEST(Lifecycle, RecordsOfAStoppedStoreReachTheDiskAtTheNextStart) {
    RunningStore store;
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    ASSERT_EQ(store.core.Stop(), hr::ok);
    ASSERT_EQ(store.core.Shutdown(), hr::ok);
    ASSERT_EQ(store.Insert(EventKey(7)), hr::ok);
    ASSERT_EQ(store.core.Initialize(), hr::ok);
    ASSERT_EQ(store.core.Stop(), hr::ok);
    EXPECT_TRUE(store.OnDisk(EventKey(7)));
}

TEST(Lifecycle, OneCoreWhileAnyProxyLives) {
    auto first = EventStoreImpl::GetInstance();
    EXPECT_EQ(first, EventStoreImpl::GetInstance());
    std::weak_ptr<EventStoreImpl> former = first;
    first.reset();
    EXPECT_TRUE(former.expired());
    EXPECT_NE(EventStoreImpl::GetInstance(), nullptr);
}

}  // namespace
}  // namespace ZEL
