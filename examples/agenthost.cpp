// A host that uses more than the minimum: reports, settings, a query on a thread of its own,
// enrichments, the size limit, the table of errors and the disk monitor. Each run lists what former
// runs have stored and stores one more event.

#include <cstdio>
#include <string>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"
#include "zelstore/ieventstore.h"
#include "zelstore/izelstorequery.h"

namespace {

using ZEL::CountedPtr;
using ZEL::HRESULT;
using ZEL::IStringValue;
using ZEL::TobResult;

CountedPtr<IStringValue> Value(const std::wstring& text) {
    return CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(text.c_str()));
}

// What the store reports beside its result codes. It is called under locks of the store: it must
// not call back.
class Reports final : public wm::IErrorReportSink {
    void OnReport(const wm::ErrorReport& report) override {
        std::fprintf(stderr, "store: %s 0x%08X\n", report.Label().c_str(),
                     ZEL::Bits(report.Code()));
    }
};

// An object of the host for as long as this program's main function runs: nobody counts it.
template <typename Interface>
class Uncounted : public Interface {
    TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = iid == ZEL::iidTobBase ? this : nullptr;
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }

protected:
    ~Uncounted() = default;
};

// Prints results, and tells their end to a thread that waits for it.
class Listing final : public Uncounted<ZEL::IQueryCallback> {
public:
    bool Create() { return ended_.Create(wm::EventReset::manual); }
    void AwaitEnd() const {
        const ZEL::HANDLE ended = ended_.Handle();
        wm::WaitForAny(1, &ended, wm::waitForever);
    }
    int Count() const { return count_; }

private:
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                           IStringValue*, std::int32_t) override {
        for (std::size_t i = 0; !isFinal && i < results->Count(); ++i, ++count_)
            std::printf("%s\n", wm::ToUtf8Lossy(results->GetValue(i)->GetText()).c_str());
        if (isFinal)
            ended_.Set();
        return ZEL::hr::ok;
    }

    wm::EventObject ended_;
    int count_ = 0;
};

class Room final : public Uncounted<ZEL::IMonitorSubscriber> {
    HRESULT OnMonitorEvent(ZEL::IMonitorEvent* event) override {
        std::printf("disk: %s\n", event->GetState() == ZEL::DiskState::stop ? "stop" : "resume");
        return ZEL::hr::ok;
    }
};

bool LengthenQueue() {
    CountedPtr<ZEL::ISettingsManager> settings;
    CountedPtr<ZEL::ISettingsKey> key;
    return Succeeded(wm::OpenSettings(settings.Receive())) &&
           Succeeded(settings->OpenKey(L"ZEL\\Settings\\FDR", key.Receive())) &&
           Succeeded(key->WriteNumber(L"MAX_INCOMING_QUEUE_LENGTH", 50000)) &&
           Succeeded(settings->PutBack(key.Get()));
}

bool ListStored(int* count) {
    Listing listing;
    CountedPtr<ZEL::IZelStoreQuery2> query;
    const auto document = Value(
        LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}],)"
        LR"("include_enrichments":true}})");
    if (!listing.Create() ||
        Failed(wm::LoadInstalledObject(L"ZELStore", ZEL::eventsQueryObjectId,
                                       ZEL::iidZelStoreQuery2, query.ReceiveVoid())) ||
        Failed(query->Start(document.Get(), &listing)))
        return false;
    listing.AwaitEnd();
    *count = listing.Count();
    return Succeeded(query->StopAndWait());  // frees the query; `listing` is not used any more
}

bool StoreOne(ZEL::IEventStore7& store, int number) {
    const auto event = Value(
        LR"({"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\a.txt"]}}},)"
        LR"("action":["create"],"begin_time":{"value":"2026-11-12T10:00:00.000Z"},)"
        LR"("seq_num":)" +
        std::to_wstring(number) + L"}");
    const auto enrichment = Value(LR"({"verdict":"benign"})");
    CountedPtr<IStringValue> key, enrichmentKey;
    return Succeeded(store.MakeKey(event.Get(), ZEL::keyKindEvent, key.Receive())) &&
           Succeeded(store.Insert(key.Get(), event.Get())) &&
           Succeeded(store.MakeFlaggedEnrichmentKey(key.Get(), true, enrichmentKey.Receive())) &&
           Succeeded(store.InsertSilent(enrichmentKey.Get(), enrichment.Get()));
}

bool WatchRoom(Room& room) {
    CountedPtr<ZEL::IDiskSpaceMonitorManager> monitors;
    CountedPtr<ZEL::IMonitorRegistration> registration;
    if (Failed(wm::LoadInstalledObject(L"ZELStore", ZEL::diskSpaceMonitorManagerObjectId,
                                       ZEL::iidDiskSpaceMonitorManager, monitors.ReceiveVoid())) ||
        Failed(monitors->StartMonitor()))
        return false;
    const bool worked = Succeeded(monitors->GetRegistration(registration.Receive())) &&
                        Succeeded(registration->Subscribe(&room)) &&
                        Succeeded(registration->Unsubscribe(&room));
    return Succeeded(monitors->StopMonitor()) && worked;
}

// True when there are none.
bool PrintDatabaseErrors(ZEL::IEventStore7& store) {
    CountedPtr<ZEL::IValueCollection> errors;
    if (Failed(store.GetDatabaseErrors(errors.Receive())))
        return false;
    for (std::size_t i = 0; i < errors->Count(); ++i) {
        std::uint32_t operation = 0, times = 0, result = 0;
        ZEL::IValueRecord& row = *errors->GetRecord(i);
        row.GetNumber(1, &operation);
        row.GetNumber(2, &times);
        row.GetNumber(3, &result);
        std::printf("%s: operation %u failed %u times, 0x%08X\n",
                    wm::ToUtf8Lossy(row.GetText(0)->GetText()).c_str(), operation, times, result);
    }
    return errors->Count() == 0;
}

bool Run(ZEL::IEventStore7& store) {
    constexpr std::uint32_t mostMegabytes = 500;
    Room room;
    int count = 0;
    return ListStored(&count) && StoreOne(store, count + 1) && WatchRoom(room) &&
           Succeeded(store.Purge(mostMegabytes));
}

}  // namespace

int main(int argc, char** argv) {
    std::wstring directory;
    if (argc != 2 || !wm::ToWide(argv[1], directory)) {
        std::fprintf(stderr, "usage: agenthost DIRECTORY\n");
        return 2;
    }
    static Reports reports;
    wm::SetErrorReportSink(&reports);
    wm::SetPathToken(L"%ZELDataStore%", directory);
    CountedPtr<ZEL::IEventStore7> store;
    if (!LengthenQueue() ||
        Failed(wm::LoadInstalledObject(L"ZELStore", ZEL::eventStoreObjectId, ZEL::iidEventStore7,
                                       store.ReceiveVoid())) ||
        Failed(store->Initialize()))
        return 1;
    // Whatever failed, Stop comes before Shutdown, which waits for what it ends.
    const bool worked = Run(*store);
    const bool written = Succeeded(store->Stop());
    const bool isWhole = PrintDatabaseErrors(*store);
    return Succeeded(store->Shutdown()) && written && isWhole && worked ? 0 : 1;
}
