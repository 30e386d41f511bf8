#include "connection/distantstore.h"

#include <utility>

#include "common/boundary.h"
#include "common/valuetext.h"

namespace zel {

using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

DistantStore::DistantStore(ISessionListener& listener, ZEL::CountedPtr<ZEL::IEventStore7> keys)
    : listener_(listener), keys_(std::move(keys)) {}

ZEL::TobResult DistantStore::QueryInterface(const ZEL::GUID&, void** out) {
    if (out == nullptr)
        return ZEL::TOBERR_INVALID_ARG;
    *out = nullptr;
    return ZEL::TOBERR_NO_INTERFACE;
}
std::int64_t DistantStore::Release() {
    const std::int64_t left = --references_;
    if (left == 0)
        delete this;
    return left;
}

HRESULT DistantStore::MakeKey(IStringValue* text, std::int32_t kind, IStringValue** key) {
    return keys_->MakeKey(text, kind, key);
}
HRESULT DistantStore::MakePropertyKey(ZEL::IEventProperties* event, IStringValue** key) {
    return keys_->MakePropertyKey(event, key);
}
HRESULT DistantStore::MakeEnrichmentKey(IStringValue* baseKey, IStringValue** key) {
    return keys_->MakeEnrichmentKey(baseKey, key);
}
HRESULT DistantStore::MakeFlaggedEnrichmentKey(IStringValue* baseKey, bool silentEnrichment,
                                               IStringValue** key) {
    return keys_->MakeFlaggedEnrichmentKey(baseKey, silentEnrichment, key);
}

HRESULT DistantStore::Query(IStringValue* document, ZEL::IQueryCallback* callback,
                            ZEL::HANDLE stopEvent) {
    if (callback == nullptr)
        return hr::invalidArgument;
    bool isComplete = true;
    const HRESULT result = ZEL::AtBoundary([&] {
        std::string buffer, problem;
        const auto text = document != nullptr ? wm::Utf8Of(*document, buffer) : std::nullopt;
        if (!text || text->empty())
            return document == nullptr || text ? hr::invalidArgument : hr::unexpected;
        const HRESULT end = Ask(std::string(*text), *callback, stopEvent, &isComplete, &problem);
        return Told(end, problem);
    });
    ZEL::IgnoreResult(callback->OnQueryResults(result, nullptr, true, isComplete, nullptr, 0),
                      "nothing follows");
    return result;
}

HRESULT DistantStore::QueryEx(IStringValue*, ZEL::IQueryCallback*, ZEL::HANDLE, ZEL::HANDLE) {
    return hr::notImplemented;
}
HRESULT DistantStore::GetOldestDate(IStringValue**, std::uint64_t*) {
    return hr::notImplemented;
}
HRESULT DistantStore::Insert(IStringValue*, IStringValue*) {
    return hr::notImplemented;
}
HRESULT DistantStore::InsertSilent(IStringValue*, IStringValue*) {
    return hr::notImplemented;
}
HRESULT DistantStore::Purge(std::uint32_t) {
    return hr::notImplemented;
}
HRESULT DistantStore::SetLiveMode(bool) {
    return hr::notImplemented;
}
HRESULT DistantStore::Initialize() {
    return hr::notImplemented;
}
HRESULT DistantStore::Stop() {
    return hr::ok;
}
HRESULT DistantStore::Shutdown() {
    return hr::ok;
}

HRESULT DistantStore::Told(HRESULT result, const std::string& problem) {
    if (Failed(result) && result != hr::aborted && !problem.empty())
        listener_.Say(problem);
    return result;
}

}  // namespace zel
