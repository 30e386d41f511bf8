#include <gtest/gtest.h>

#include <functional>

#include "support/client.h"
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

TEST(Component, FactoriesMakeObjectsAndLeaveNothingBehind) {
    const LoadedComponent component;
    auto* const untouched = reinterpret_cast<ITobFactory*>(0x10);
    ITobFactory* unknown = untouched;
    EXPECT_EQ(component.getFactory(unknownId, &unknown), TOBERR_INVALID_ARG);
    EXPECT_EQ(unknown, untouched);
    EXPECT_EQ(component.getFactory(eventStoreObjectId, nullptr), TOBERR_INVALID_ARG);
    {
        const auto factory = component.Factory();
        EXPECT_NE(component.Factory().Get(), factory.Get()) << "factories are not shared";
        EXPECT_EQ(component.getObjectCount(), 1u);
        void* out = nullptr;
        for (const GUID& iid : {iidTobBase, iidTobFactory, iidTobFactory2}) {
            ASSERT_EQ(factory->QueryInterface(iid, &out), TOB_OK);
            EXPECT_EQ(static_cast<ITobFactory2*>(out)->Release(), 1);
        }
        out = &out;
        EXPECT_EQ(factory->QueryInterface(unknownId, &out), TOBERR_NO_INTERFACE);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(factory->CreateInstance(iidTobBase, nullptr), TOBERR_INVALID_ARG);
        EXPECT_EQ(factory->CreateInstance(unknownId, &out), TOBERR_NO_INTERFACE);
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
    EXPECT_EQ(store->Stop(), hr::ok);
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
    EXPECT_EQ(insert(), hr::ok) << "queued, though nothing drains the queue";
    EXPECT_EQ(store->Shutdown(), hr::ok);
    EXPECT_EQ(insert(), hr::ok);
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
    EXPECT_EQ(store->MakeKey(text.Get(), 2, key.Receive()), hr::invalidArgument);
    EXPECT_EQ(store->MakeKey(nullptr, keyKindReceive, key.Receive()), hr::invalidArgument);
    ASSERT_EQ(store->MakeKey(text.Get(), keyKindEvent, key.Receive()), hr::ok);
    const std::string primary = test::Utf8(key.Get());
    const auto base = Str(primary);
    ASSERT_EQ(store->MakeEnrichmentKey(base.Get(), key.Receive()), hr::ok);
    EXPECT_EQ(test::Utf8(key.Get()), primary + "<silent_sequence>0000000001");
    ASSERT_EQ(store->MakeFlaggedEnrichmentKey(base.Get(), true, key.Receive()), hr::ok);
    EXPECT_EQ(test::Utf8(key.Get()), primary + "<silent_sequence>0000000002<silent_enrichment>1");
}

}  // namespace
}  // namespace ZEL
