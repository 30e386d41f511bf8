#include <gtest/gtest.h>

#include "support/client.h"
#include "support/failingmemory.h"
#include "support/storefixture.h"

namespace ZEL {
namespace {

// Runs an operation with memory for 0, 1, 2... allocations until none fails; gives the number of
// runs that lacked some.
template <typename Operation>
int Starve(Operation&& operation) {
    for (int allowed = 0;; ++allowed) {
        bool starved = false;
        {
            const test::FailingMemory memory(allowed);
            operation();
            starved = memory.Failed();
        }
        if (!starved)
            return allowed;
    }
}

TEST(Memory, WithoutItNothingEndsTheProcess) {
    const test::LoadedComponent component;
    const test::TempStore directory;
    const auto factory = component.Factory();
    const std::uint32_t objects = component.getObjectCount();
    // A store whose core could not be made is an object all the same, and says so.
    int halfMade = 0;
    const int points = Starve([&] {
        CountedPtr<IEventStore7> store;
        if (Succeeded(factory->CreateInstance(iidEventStore7, store.ReceiveVoid())))
            halfMade += store->Stop() == hr::outOfMemory ? 1 : 0;
    });
    EXPECT_GE(points, 3);
    EXPECT_GE(halfMade, 1);
    EXPECT_EQ(component.getObjectCount(), objects);

    TobResult last = TOBERR_FAIL;
    Starve([&] {
        CountedPtr<ISettingsManager> settings;
        last = wm::OpenSettings(settings.Receive());
    });
    EXPECT_EQ(last, TOB_OK);

    const auto record = test::Str(test::FileEvent("2026-05-01T10:00:00.000Z", 1));
    const auto store = component.Store();
    Starve([&] {
        CountedPtr<IStringValue> key;
        IgnoreResult(store->MakeKey(record.Get(), keyKindEvent, key.Receive()), "starved");
    });
}

TEST(Memory, WaitsNeedNone) {
    wm::EventObject first, second;
    ASSERT_TRUE(first.Create(false, false) && second.Create(false, false));
    const HANDLE handles[] = {first.Handle(), second.Handle()};
    second.Set();
    const test::FailingMemory memory(0);
    const std::uint32_t set = wm::WaitForAny(2, handles, wm::waitForever);
    const bool failed = memory.Failed();
    EXPECT_EQ(set, 1u);
    EXPECT_FALSE(failed);
}

}  // namespace
}  // namespace ZEL
