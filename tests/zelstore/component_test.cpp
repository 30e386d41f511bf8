#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "support/client.h"
#include "support/fakesettings.h"
#include "support/storefixture.h"

namespace ZEL {
namespace {

using test::LoadedComponent;
using test::Str;

constexpr GUID unknownId = MakeGuid("11111111-2222-3333-4444-555555555555");

// A loader that counts what an object tells it.
class CountingOwner final : public IObjectOwner {
public:
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return ++references; }
    std::int64_t Release() override { return --references; }
    TobResult ReleaseModule(void* module) override {
        EXPECT_NE(module, nullptr);
        EXPECT_GT(references, 0) << "the owner is held while it is told";
        ++moduleReleases;
        if (onRelease)
            onRelease();
        return TOB_OK;
    }
    TobResult AddRefModule(void*) override {
        ++moduleAddRefs;
        return TOB_OK;
    }

    int references = 0;
    int moduleReleases = 0;
    int moduleAddRefs = 0;
    std::function<void()> onRelease;
};

// Runs a body in a process of its own, so that a database is really closed and read from disk.
void InChildProcess(const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0) << "the other process failed";
}

TEST(Component, FactoriesMakeObjectsAndLeaveNothingBehind) {
    const LoadedComponent component;
    auto* const untouched = reinterpret_cast<ITobFactory*>(0x10);
    ITobFactory* none = untouched;
    EXPECT_EQ(component.getFactory(unknownId, &none), TOBERR_INVALID_ARG);
    EXPECT_EQ(none, untouched);
    {
        const auto factory = component.Factory();
        EXPECT_NE(component.Factory().Get(), factory.Get()) << "factories are not shared";
        EXPECT_EQ(component.getObjectCount(), 1u);
        void* out = nullptr;
        for (const GUID& iid : {iidTobBase, iidTobFactory, iidTobFactory2}) {
            ASSERT_EQ(factory->QueryInterface(iid, &out), TOB_OK);
            EXPECT_EQ(static_cast<ITobFactory2*>(out)->Release(), 1);
        }
        EXPECT_EQ(factory->QueryInterface(unknownId, &out), TOBERR_NO_INTERFACE);
        EXPECT_EQ(out, nullptr);
        out = &out;
        EXPECT_EQ(factory->CreateInstance(unknownId, &out), TOBERR_NO_INTERFACE);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(component.getObjectCount(), 1u) << "the refused object is gone";

        CountedPtr<IEventStore> first;
        ASSERT_EQ(factory->CreateInstance(iidTobBase, first.ReceiveVoid()), TOB_OK);
        for (const GUID& iid : {iidEventStore, iidEventStore2, iidEventStore3, iidEventStore4,
                                iidEventStore5, iidEventStore6, iidEventStore7}) {
            ASSERT_EQ(first->QueryInterface(iid, &out), TOB_OK);
            EXPECT_EQ(out, first.Get());
            EXPECT_EQ(first->Release(), 1);
        }
        EXPECT_EQ(component.getObjectCount(), 2u);
    }
    EXPECT_EQ(component.getObjectCount(), 0u);
}

TEST(Component, LastReleaseTellsTheOwnerBehindTheDestructor) {
    const LoadedComponent component;
    CountingOwner owner;
    std::uint32_t countWhenTold = 99;
    owner.onRelease = [&] { countWhenTold = component.getObjectCount(); };
    {
        const auto factory = component.Factory();
        CountedPtr<IEventStore7> store;
        ASSERT_EQ(factory->CreateInstance(iidEventStore7, store.ReceiveVoid(), &owner), TOB_OK);
        EXPECT_EQ(owner.references, 1);
        EXPECT_EQ(owner.moduleAddRefs, 0) << "the loader balances that itself";
        store.Reset();
        EXPECT_EQ(owner.moduleReleases, 1);
        EXPECT_EQ(countWhenTold, 1u) << "only the factory is left";
        EXPECT_EQ(owner.references, 0);
        void* out = nullptr;
        EXPECT_EQ(factory->CreateInstance(unknownId, &out, &owner), TOBERR_NO_INTERFACE);
    }
    EXPECT_EQ(owner.moduleReleases, 1);
    EXPECT_EQ(owner.references, 0);
}

TEST(Component, EveryStateAnswersAsItShould) {
    test::TempStore directory;
    const LoadedComponent component;
    auto store = component.Store();
    const auto key = Str("p<begin_time>2026-01-01T00:00:00.000Z<sequence>0000000001");
    const auto value = Str("{}");
    const auto insert = [&] { return store->Insert(key.Get(), value.Get()); };
    test::RecordingCallback callback;
    IValueCollection* errors = nullptr;

    EXPECT_EQ(insert(), hr::notReady);
    EXPECT_EQ(store->Purge(1), hr::aborted);
    EXPECT_EQ(store->GetDatabaseErrors(&errors), hr::fail);
    EXPECT_EQ(store->ClearDatabaseErrors(), hr::fail);
    EXPECT_EQ(RunQuery(*store, "{}", callback), hr::fail);
    EXPECT_EQ(store->Stop(), hr::ok) << "before any start it does no harm";
    EXPECT_EQ(store->Shutdown(), hr::ok);

    ASSERT_EQ(store->Initialize(), hr::ok);
    auto second = component.Store();
    EXPECT_EQ(second->Initialize(), hr::nothingToDo) << "the proxies share the store";
    EXPECT_EQ(insert(), hr::ok);
    EXPECT_EQ(second->Insert(nullptr, value.Get()), hr::invalidArgument);
    EXPECT_EQ(store->InsertSilent(key.Get(), Str("").Get()), hr::invalidArgument);
    EXPECT_EQ(store->GetDatabaseErrors(&errors), hr::ok);
    ASSERT_NE(errors, nullptr);
    EXPECT_EQ(errors->Count(), 0u);
    errors->Release();

    EXPECT_EQ(store->Stop(), hr::ok);
    EXPECT_EQ(store->Shutdown(), hr::ok);
    EXPECT_EQ(insert(), hr::ok) << "queued, though nothing drains the queue";
    EXPECT_EQ(store->Initialize(), hr::ok) << "the same store starts again";
    EXPECT_EQ(store->Stop(), hr::ok);
    EXPECT_EQ(store->Shutdown(), hr::ok);
    store.Reset();
    second.Reset();
    EXPECT_EQ(component.getObjectCount(), 0u);
}

TEST(Component, KeyOperationsNeedNoStartedStore) {
    const LoadedComponent component;
    const auto store = component.Store();
    CountedPtr<IStringValue> key;
    const auto text = Str(test::FileEvent("2026-11-12T10:00:00.000Z", 7));
    ASSERT_EQ(store->MakeKey(text.Get(), keyKindEvent, key.Receive()), hr::ok);
    const std::string primary = test::Utf8(key.Get());
    EXPECT_EQ(primary.rfind("p<begin_time>2026-11-12T10:00:00.000Z<sequence>0000000007<", 0), 0u);
    EXPECT_EQ(store->MakeKey(text.Get(), 2, key.Receive()), hr::invalidArgument);
    EXPECT_EQ(store->MakeKey(nullptr, keyKindReceive, key.Receive()), hr::invalidArgument);
    const auto base = Str(primary);
    ASSERT_EQ(store->MakeEnrichmentKey(base.Get(), key.Receive()), hr::ok);
    EXPECT_EQ(test::Utf8(key.Get()), primary + "<silent_sequence>0000000001");
    ASSERT_EQ(store->MakeFlaggedEnrichmentKey(base.Get(), true, key.Receive()), hr::ok);
    EXPECT_EQ(test::Utf8(key.Get()), primary + "<silent_sequence>0000000002<silent_enrichment>1");
}

TEST(Component, WhatOneProcessStoredAnotherReadsThoughItIsPurged) {
    test::TempStore directory;
    test::FakeSettings settings;
    constexpr int count = 1234;
    static constexpr char query[] =
        R"({"event_query":{"events":[{"begin_time":{"value":"2026-01-01T00:00:00.000Z"}}]}})";
    InChildProcess([] {
        const LoadedComponent component;
        const auto store = component.Store();
        ASSERT_EQ(store->Initialize(), hr::ok);
        for (int i = 0; i < count; ++i)
            test::InsertEvent(*store, test::FileEvent("2026-01-02T03:04:05.000Z", i));
        ASSERT_EQ(store->Stop(), hr::ok);
        ASSERT_EQ(store->Shutdown(), hr::ok);
    });
    InChildProcess([&directory] {
        const LoadedComponent component;
        const auto store = component.Store();
        CountedPtr<IReadOnlyStore> reader;
        ASSERT_EQ(store->QueryInterface(iidReadOnlyStore, reader.ReceiveVoid()), TOB_OK);
        const auto names = directory.List(*directory.List().begin());
        ASSERT_EQ(reader->InitializeForReading(), hr::ok);
        EXPECT_EQ(reader->InitializeForReading(), hr::nothingToDo);
        EXPECT_EQ(store->Initialize(), hr::fail);
        test::RecordingCallback callback;
        EXPECT_EQ(RunQuery(*store, query, callback), hr::ok);
        EXPECT_EQ(callback.texts.size(), static_cast<std::size_t>(count));
        EXPECT_EQ(store->Insert(Str("p").Get(), Str("{}").Get()), hr::accessDenied);
        EXPECT_EQ(store->Purge(0), hr::accessDenied);
        EXPECT_EQ(store->Stop(), hr::ok);
        EXPECT_EQ(store->Shutdown(), hr::ok);
        EXPECT_EQ(directory.List(*directory.List().begin()), names);
        EXPECT_EQ(store->Initialize(), hr::fail) << "the first start has decided";
    });
    const LoadedComponent component;
    const auto store = component.Store();
    ASSERT_EQ(store->Initialize(), hr::ok);
    test::RecordingCallback callback;
    callback.onBatch = [&](std::size_t) { EXPECT_EQ(store->Purge(0), hr::ok); };
    EXPECT_EQ(RunQuery(*store, query, callback), hr::ok);
    ASSERT_EQ(callback.texts.size(), static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(callback.texts[i], test::FileEvent("2026-01-02T03:04:05.000Z", i));
    EXPECT_EQ(callback.batches.size(), 13u);
    EXPECT_TRUE(directory.List().empty()) << "purged from within the query";
    CountedPtr<IStringValue> oldest;
    std::uint64_t bytes = 7;
    EXPECT_EQ(store->GetOldestDate(oldest.Receive(), &bytes), hr::ok);
    EXPECT_EQ(test::Utf8(oldest.Get()) + std::to_string(bytes), "0");
    EXPECT_EQ(store->Stop(), hr::ok);
    EXPECT_EQ(store->Shutdown(), hr::ok);
}

}  // namespace
}  // namespace ZEL
