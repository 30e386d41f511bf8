#pragma once

#include <atomic>
#include <string>

#include "common/countedptr.h"
#include "connection/sessionlistener.h"
#include "zelstore/ieventstore.h"

namespace zel {

// What stores that are asked elsewhere have in common. Keys are made by a store of this process,
// which need not be started. What an heir does not have gives hr::notImplemented; that the agent or
// the fleet does not answer is told to the listener. Both outlive the object.
class DistantStore : public ZEL::IEventStore7 {
public:
    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override;
    std::int64_t AddRef() override { return ++references_; }
    std::int64_t Release() override;

    ZEL::HRESULT MakeKey(ZEL::IStringValue* text, std::int32_t kind,
                         ZEL::IStringValue** key) override;
    ZEL::HRESULT MakePropertyKey(ZEL::IEventProperties* event, ZEL::IStringValue** key) override;
    ZEL::HRESULT MakeEnrichmentKey(ZEL::IStringValue* baseKey, ZEL::IStringValue** key) override;
    ZEL::HRESULT MakeFlaggedEnrichmentKey(ZEL::IStringValue* baseKey, bool silentEnrichment,
                                          ZEL::IStringValue** key) override;

    ZEL::HRESULT Query(ZEL::IStringValue* document, ZEL::IQueryCallback* callback,
                       ZEL::HANDLE stopEvent) override;
    ZEL::HRESULT QueryEx(ZEL::IStringValue*, ZEL::IQueryCallback*, ZEL::HANDLE,
                         ZEL::HANDLE) override;
    ZEL::HRESULT GetOldestDate(ZEL::IStringValue** oldestDate, std::uint64_t* totalBytes) override;
    ZEL::HRESULT Insert(ZEL::IStringValue* key, ZEL::IStringValue* value) override;
    ZEL::HRESULT InsertSilent(ZEL::IStringValue* key, ZEL::IStringValue* value) override;
    ZEL::HRESULT Purge(std::uint32_t maxSizeMegabytes) override;
    ZEL::HRESULT SetLiveMode(bool enable) override;
    ZEL::HRESULT Initialize() override;
    ZEL::HRESULT Stop() override;
    ZEL::HRESULT Shutdown() override;

protected:
    DistantStore(ISessionListener& listener, ZEL::CountedPtr<ZEL::IEventStore7> keys);
    virtual ~DistantStore() = default;

    // Answers one document by calls of `callback`, all but the last, which Query makes. Words for
    // people in `*problem`; `*isComplete` is false where a limit has cut results off.
    virtual ZEL::HRESULT Ask(const std::string& document, ZEL::IQueryCallback& callback,
                             ZEL::HANDLE stopEvent, bool* isComplete, std::string* problem) = 0;

    // The result, of which the listener hears unless somebody has ended the work.
    ZEL::HRESULT Told(ZEL::HRESULT result, const std::string& problem);
    ISessionListener& Listener() noexcept { return listener_; }

private:
    ISessionListener& listener_;
    const ZEL::CountedPtr<ZEL::IEventStore7> keys_;
    std::atomic<std::int64_t> references_{1};
};

}  // namespace zel
