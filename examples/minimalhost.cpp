// A host of the store: loads the component, stores two events and reads them back.

#include <cstdio>
#include <string>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/ieventstore.h"

namespace {

using ZEL::CountedPtr;
using ZEL::IStringValue;

CountedPtr<IStringValue> Value(const std::wstring& text) {
    return CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(text.c_str()));
}

// Prints results. It lives longer than the query, so its count is not looked at.
class Printer final : public ZEL::IQueryCallback {
public:
    ZEL::TobResult QueryInterface(const ZEL::GUID&, void**) override {
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                                IStringValue*, std::int32_t) override {
        for (std::size_t i = 0; !isFinal && i < results->Count(); ++i)
            std::printf("%s\n", wm::ToUtf8Lossy(results->GetValue(i)->GetText()).c_str());
        return ZEL::hr::ok;
    }
};

std::wstring Event(int number) {
    return LR"({"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\temp\\a.txt"]}}},)"
           LR"("action":["create"],"begin_time":{"value":"2026-11-12T10:00:00.000Z"},"seq_num":)" +
           std::to_wstring(number) + L"}";
}

// Neither Insert nor Stop nor Query fails for a batch or folder that was lost, in a directory that
// does not exist for instance: only this table tells.
bool IsWhole(ZEL::IEventStore7& store) {
    CountedPtr<ZEL::IValueCollection> errors;
    return Succeeded(store.GetDatabaseErrors(errors.Receive())) && errors->Count() == 0;
}

bool StoreTwo(ZEL::IEventStore7& store) {
    for (int number : {1, 2}) {
        const auto event = Value(Event(number));
        CountedPtr<IStringValue> key;
        if (Failed(store.MakeKey(event.Get(), ZEL::keyKindEvent, key.Receive())) ||
            Failed(store.Insert(key.Get(), event.Get())))
            return false;
    }
    return true;
}

bool ReadBack(ZEL::IEventStore7& store) {
    Printer printer;
    wm::EventObject stop;
    const auto document = Value(
        LR"({"event_query":{"events":[{"begin_time":{"value":"2026-11-12T00:00:00.000Z"}}]}})");
    return stop.Create(wm::EventReset::automatic) &&
           Succeeded(store.Query(document.Get(), &printer, stop.Handle())) && IsWhole(store);
}

}  // namespace

int main(int argc, char** argv) {
    std::wstring directory;
    if (argc != 2 || !wm::ToWide(argv[1], directory)) {
        std::fprintf(stderr, "usage: minimalhost DIRECTORY\n");
        return 2;
    }
    wm::SetPathToken(L"%ZELDataStore%", directory);
    CountedPtr<ZEL::IEventStore7> store;
    if (Failed(wm::LoadInstalledObject(L"ZELStore", ZEL::eventStoreObjectId, ZEL::iidEventStore7,
                                       store.ReceiveVoid())) ||
        Failed(store->Initialize()))
        return 1;
    // Queries see what has reached the disk. Stop writes what is queued; without it the store does
    // so within a minute. Whatever failed, it comes before Shutdown, which waits for what it ends.
    const bool stored = StoreTwo(*store);
    const bool written = Succeeded(store->Stop());
    const bool worked = stored && written && ReadBack(*store);
    if (!worked)
        std::fprintf(stderr, "minimalhost: events can't be stored or read in %s\n", argv[1]);
    return Succeeded(store->Shutdown()) && worked ? 0 : 1;
}
