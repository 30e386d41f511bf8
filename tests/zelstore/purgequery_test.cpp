#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "support/client.h"
#include "support/fakesettings.h"
#include "support/storefixture.h"

namespace ZEL {
namespace {

namespace fs = std::filesystem;
using test::LoadedComponent;

constexpr int count = 2500;

std::size_t CountEntries(const char* directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

// Stores the events of an earlier day, in a process of its own.
void StoreFormerDay(const test::TempStore& directory) {
    const pid_t child = ::fork();
    if (child == 0) {
        const LoadedComponent component;
        const auto store = component.Store();
        EXPECT_EQ(store->Initialize(), hr::ok);
        for (int i = 0; i < count; ++i)
            test::InsertEvent(*store, test::FileEvent("2026-01-02T03:04:05.000Z", i));
        EXPECT_EQ(store->Stop(), hr::ok);
        EXPECT_EQ(store->Shutdown(), hr::ok);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(directory.List().size(), 1u);
    fs::rename(directory.Path() / *directory.List().begin(), directory.Path() / "20260102");
}

// A query's reader that asks for a purge, and then for another one, while results come.
class PurgingCallback final : public IQueryCallback {
public:
    explicit PurgingCallback(IEventStore7& store) : store_(store) {}
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT, IValueCollection* results, bool isFinal, bool, IStringValue*,
                           std::int32_t) override {
        if (!isFinal)
            rows += results->Count();
        return store_.Purge(0);
    }

    std::size_t rows = 0;

private:
    IEventStore7& store_;
};

TEST(PurgeInQuery, DeliversWhatWasThereAndLeavesNothingBehind) {
    test::TempStore directory;
    test::FakeSettings settings;
    StoreFormerDay(directory);
    const LoadedComponent component;
    const auto store = component.Store();
    ASSERT_EQ(store->Initialize(), hr::ok);
    const std::string document =
        R"({"event_query":{"events":[{"begin_time":{"value":"2026-01-01T00:00:00.000Z"}}]}})";
    {
        // The library starts a thread of its own at the first opening.
        test::RecordingCallback warming;
        ASSERT_EQ(RunQuery(*store, document, warming), hr::ok);
        ASSERT_EQ(warming.texts.size(), static_cast<std::size_t>(count));
    }
    const std::size_t descriptors = CountEntries("/proc/self/fd");
    const std::size_t threads = CountEntries("/proc/self/task");
    const std::uint32_t objects = component.getObjectCount();
    {
        PurgingCallback purging(*store);
        wm::EventObject stop;
        ASSERT_TRUE(stop.Create(false, false));
        EXPECT_EQ(store->Query(test::Str(document).Get(), &purging, stop.Handle()), hr::ok);
        EXPECT_EQ(purging.rows, static_cast<std::size_t>(count));
    }
    EXPECT_TRUE(directory.List().empty());
    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
    EXPECT_EQ(component.getObjectCount(), objects);
    while (CountEntries("/proc/self/task") > threads)
        std::this_thread::yield();  // a thread shows for a moment behind its end
    CountedPtr<IStringValue> oldest;
    std::uint64_t bytes = 7;
    EXPECT_EQ(store->GetOldestDate(oldest.Receive(), &bytes), hr::ok);
    EXPECT_EQ(test::Utf8(oldest.Get()) + std::to_string(bytes), "0");
    EXPECT_EQ(store->Stop(), hr::ok);
    EXPECT_EQ(store->Shutdown(), hr::ok);
}

}  // namespace
}  // namespace ZEL
