#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "support/client.h"
#include "support/storefixture.h"

namespace {

constexpr int unlimited = -1;
thread_local int allowedAllocations = unlimited;
thread_local bool failed = false;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    failed = failed || allowedAllocations == 0;
    if (allowedAllocations == 0)
        return nullptr;
    if (allowedAllocations != unlimited)
        --allowedAllocations;
    return std::malloc(size != 0 ? size : 1);
}
void* operator new(std::size_t size) {
    if (void* const memory = operator new(size, std::nothrow))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace ZEL {
namespace {

// While it lives, allocations of this thread fail from the one behind `allowed` others on. Nothing
// that asserts may run under it.
class FailingMemory {
public:
    explicit FailingMemory(int allowed) noexcept {
        failed = false;
        allowedAllocations = allowed;
    }
    ~FailingMemory() { allowedAllocations = unlimited; }
};

// Runs an operation with memory for 0, 1, 2... allocations until none fails; gives the number of
// runs that lacked some.
template <typename Operation>
int Starve(Operation&& operation) {
    for (int allowed = 0;; ++allowed) {
        {
            const FailingMemory memory(allowed);
            operation();
        }
        if (!failed)
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
    std::uint32_t set = 0;
    {
        const FailingMemory memory(0);
        set = wm::WaitForAny(2, handles, wm::waitForever);
    }
    EXPECT_EQ(set, 1u);
    EXPECT_FALSE(failed);
}

}  // namespace
}  // namespace ZEL
