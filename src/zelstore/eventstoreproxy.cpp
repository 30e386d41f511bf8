#include "zelstore/eventstoreproxy.h"

#include <string>

#include "common/boundary.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/keymaker.h"
#include "zelstore/rowfilter.h"

// The facade. Each operation goes to the core of the process, and nothing that is thrown below
// leaves it. The operations on keys alone need no core: they use the state of this object.

namespace ZEL {

namespace {

std::wstring_view TextOf(IStringValue* value) {
    return {value->GetText(), value->GetLength(0)};
}

// Both null without memory.
IStringValue* ValueOf(const std::wstring& text) {
    return wm::CreateStringValue(std::wstring_view(text));
}
IStringValue* ValueOf(const std::string& ascii) {
    IStringValue* made = nullptr;
    return wm::CreateStringValue(std::string_view(ascii), &made) ? made : nullptr;
}

}  // namespace

EventStoreProxy::EventStoreProxy() : core_(EventStoreImpl::GetInstance()) {}

TobResult EventStoreProxy::QueryInterface(const GUID& iid, void** out) {
    IEventStore7* const face = this;
    return Answer(iid, out,
                  {{iidEventStore, face},
                   {iidEventStore2, face},
                   {iidEventStore3, face},
                   {iidEventStore4, face},
                   {iidEventStore5, face},
                   {iidEventStore6, face},
                   {iidEventStore7, face},
                   {iidReadOnlyStore, static_cast<IReadOnlyStore*>(this)},
                   {iidWriteProgress, static_cast<IWriteProgress*>(this)},
                   {iidRowFilterMaker, static_cast<IRowFilterMaker*>(this)}});
}

template <typename Operation>
HRESULT EventStoreProxy::OnCore(Operation&& operation) noexcept {
    if (!core_)
        return hr::outOfMemory;
    return AtBoundary([&] { return operation(*core_); });
}

template <typename Make>
HRESULT EventStoreProxy::GiveKey(IStringValue** key, Make&& make) noexcept {
    if (key == nullptr)
        return hr::invalidArgument;
    return AtBoundary([&] {
        // Made before `*key` is touched: what throws leaves that as it was.
        const auto text = make();
        *key = ValueOf(text);
        return *key != nullptr ? hr::ok : hr::outOfMemory;
    });
}

HRESULT EventStoreProxy::GiveEventKey(IStringValue* text, IStringValue** key) noexcept {
    if (key == nullptr)
        return hr::invalidArgument;
    return eventKeys_.Make(*text, key);
}

HRESULT EventStoreProxy::MakeKey(IStringValue* text, std::int32_t kind, IStringValue** key) {
    if (kind != keyKindEvent && kind != keyKindReceive) {
        wm::Trace(wm::message::unknownKeyKind, hr::invalidArgument, std::to_string(kind));
        return hr::invalidArgument;
    }
    if (text == nullptr)
        return hr::invalidArgument;
    if (kind == keyKindReceive)
        return GiveKey(key, [&] { return keyState_.MakeReceiveKey(); });
    return GiveEventKey(text, key);
}

HRESULT EventStoreProxy::MakePropertyKey(IEventProperties* event, IStringValue** key) {
    if (event == nullptr)
        return hr::invalidArgument;
    std::wstring made;
    const HRESULT result = ZEL::MakePropertyKey(event, &made);
    return Failed(result) ? result : GiveKey(key, [&] { return std::move(made); });
}

HRESULT EventStoreProxy::MakeEnrichmentKey(IStringValue* baseKey, IStringValue** key) {
    if (baseKey == nullptr)
        return hr::invalidArgument;
    return GiveKey(key, [&] { return keyState_.MakeEnrichmentKey(TextOf(baseKey)); });
}

HRESULT EventStoreProxy::MakeFlaggedEnrichmentKey(IStringValue* baseKey, bool silentEnrichment,
                                                  IStringValue** key) {
    if (baseKey == nullptr)
        return hr::invalidArgument;
    return GiveKey(
        key, [&] { return keyState_.MakeFlaggedEnrichmentKey(TextOf(baseKey), silentEnrichment); });
}

HRESULT EventStoreProxy::Insert(IStringValue* key, IStringValue* value) {
    return OnCore([&](EventStoreImpl& core) { return core.Insert(key, value, RecordKind::event); });
}

HRESULT EventStoreProxy::InsertSilent(IStringValue* key, IStringValue* value) {
    return OnCore([&](EventStoreImpl& core) {
        return core.Insert(key, value, RecordKind::silentEnrichment);
    });
}

HRESULT EventStoreProxy::Query(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent) {
    return QueryEx(document, callback, stopEvent, nullptr);
}

HRESULT EventStoreProxy::QueryEx(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent,
                                 HANDLE pauseEvent) {
    return OnCore([&](EventStoreImpl& core) {
        return core.Query(document, callback, stopEvent, pauseEvent);
    });
}

HRESULT EventStoreProxy::Purge(std::uint32_t maxSizeMegabytes) {
    return OnCore([&](EventStoreImpl& core) { return core.Purge(maxSizeMegabytes); });
}

HRESULT EventStoreProxy::GetDatabaseErrors(IValueCollection** out) {
    return OnCore([&](EventStoreImpl& core) { return core.GetDatabaseErrors(out); });
}

HRESULT EventStoreProxy::ClearDatabaseErrors() {
    return OnCore([](EventStoreImpl& core) { return core.ClearDatabaseErrors(); });
}

HRESULT EventStoreProxy::GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes) {
    return OnCore([&](EventStoreImpl& core) { return core.GetOldestDate(oldestDate, totalBytes); });
}

HRESULT EventStoreProxy::Initialize() {
    return OnCore([](EventStoreImpl& core) { return core.Initialize(); });
}

HRESULT EventStoreProxy::InitializeForReading() {
    return OnCore([](EventStoreImpl& core) { return core.Initialize(StoreUse::readAlone); });
}

std::uint64_t EventStoreProxy::SettledRecords() {
    return core_ ? core_->SettledRecords() : 0;
}

HRESULT EventStoreProxy::MakeRowFilter(IStringValue* document, IRowFilter** filter) {
    return ZEL::MakeRowFilter(document, filter);
}

std::uint64_t EventStoreProxy::SettledEnrichments() {
    return core_ ? core_->SettledEnrichments() : 0;
}

HRESULT EventStoreProxy::Stop() {
    return OnCore([](EventStoreImpl& core) { return core.Stop(); });
}

HRESULT EventStoreProxy::Shutdown() {
    return OnCore([](EventStoreImpl& core) { return core.Shutdown(); });
}

HRESULT EventStoreProxy::SetLiveMode(bool enable) {
    return OnCore([&](EventStoreImpl& core) { return core.SetLiveMode(enable); });
}

}  // namespace ZEL
