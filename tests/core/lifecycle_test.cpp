#include <gtest/gtest.h>

#include "common/itobbaseimpl.h"
#include "support/fakesettings.h"
#include "support/runningstore.h"

namespace ZEL {
namespace {

using test::RunningStore;

TEST(Lifecycle, QueueLengthComesFromTheSettingsForEventsAlone) {
    const std::pair<std::uint32_t, int> rows[] = {{0, 20000}, {1000, 1000}};
    for (const auto& [setting, events] : rows) {
        test::FakeSettings settings;
        settings.Set(L"ZEL\\Settings\\FDR\\MAX_INCOMING_QUEUE_LENGTH", setting);
        RunningStore store;
        store.Start();
        store.End();
        EXPECT_EQ(store.Fill(), events);
        EXPECT_EQ(store.Fill(true), 20000);
    }
}

TEST(Lifecycle, NoDataDirectoryFailsTheStart) {
    RunningStore store;
    wm::SetPathToken(L"%ZELDataStore%", L"");
    ::unsetenv("ZELDataStore");
    EXPECT_EQ(store.core.Initialize(), hr::fail);
    wm::SetPathToken(L"%ZELDataStore%", store.directory.WidePath());
    store.Start();
}

}  // namespace
}  // namespace ZEL
