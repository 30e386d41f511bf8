#pragma once

#include <memory>

#include "common/itobbaseimpl.h"
#include "zelstore/ieventstore.h"
#include "zelstore/keymaker.h"
#include "zelstore/keys/keycounter.h"

namespace ZEL {

class EventStoreImpl;

// What a host holds: a thin object that shares the one store core of the process and numbers the
// keys that are made through it. The core may be missing when memory ran out; every operation but
// those on keys then answers 0x8007000E for the rest of the proxy's life.
class EventStoreProxy final
    : public TobObject<IEventStore7, IReadOnlyStore, IWriteProgress, IRowFilterMaker> {
public:
    EventStoreProxy();

    TobResult QueryInterface(const GUID& iid, void** out) override;

    HRESULT MakeKey(IStringValue* text, std::int32_t kind, IStringValue** key) override;
    HRESULT Insert(IStringValue* key, IStringValue* value) override;
    HRESULT Query(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent) override;
    HRESULT Purge(std::uint32_t maxSizeMegabytes) override;
    HRESULT GetDatabaseErrors(IValueCollection** out) override;
    HRESULT ClearDatabaseErrors() override;
    HRESULT Initialize() override;
    HRESULT Stop() override;
    HRESULT Shutdown() override;
    HRESULT QueryEx(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent,
                    HANDLE pauseEvent) override;
    HRESULT GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes) override;
    HRESULT MakePropertyKey(IEventProperties* event, IStringValue** key) override;
    HRESULT MakeEnrichmentKey(IStringValue* baseKey, IStringValue** key) override;
    HRESULT InsertSilent(IStringValue* key, IStringValue* value) override;
    HRESULT SetLiveMode(bool enable) override;
    HRESULT MakeFlaggedEnrichmentKey(IStringValue* baseKey, bool silentEnrichment,
                                     IStringValue** key) override;
    HRESULT InitializeForReading() override;
    std::uint64_t SettledRecords() override;
    HRESULT MakeRowFilter(IStringValue* document, IRowFilter** filter) override;
    std::uint64_t SettledEnrichments() override;

private:
    // Runs `operation` on the core, and answers for a missing core and for exceptions.
    template <typename Operation>
    HRESULT OnCore(Operation&& operation) noexcept;
    // Runs `make`, which fills a wide text, and wraps the text for the caller.
    template <typename Make>
    static HRESULT GiveKey(IStringValue** key, Make&& make) noexcept;
    HRESULT GiveEventKey(IStringValue* text, IStringValue** key) noexcept;

    std::shared_ptr<EventStoreImpl> core_;
    KeyCounter keyState_;
    EventKeyMaker eventKeys_;
};

}  // namespace ZEL
