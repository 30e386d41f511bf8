#include "connection/fleetstore.h"

#include <simdjson.h>

#include <atomic>
#include <charconv>
#include <utility>

#include "common/boundary.h"
#include "common/valuetext.h"
#include "connection/fleetanswer.h"
#include "records/eventtime.h"

namespace zel {

namespace {

using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

std::string TimeOf(std::uint64_t milliseconds) {
    const auto time = EventTimeOfMilliseconds(static_cast<std::int64_t>(milliseconds));
    return time ? time->text : "";
}

// Numbers of 64 bits may come as texts.
bool ReadNumber(const simdjson::dom::element& line, std::string_view name, std::uint64_t* number) {
    std::string_view digits;
    const auto value = line[name];
    if (value.get_uint64().get(*number) == simdjson::SUCCESS)
        return true;
    return value.get_string().get(digits) == simdjson::SUCCESS &&
           std::from_chars(digits.data(), digits.data() + digits.size(), *number).ec == std::errc();
}

bool ReadHost(simdjson::dom::parser& parser, std::string_view line, FleetHostLook* look) {
    simdjson::dom::element row;
    std::string_view host;
    std::uint64_t oldest = 0, newest = 0;
    if (parser.parse(line.data(), line.size()).get(row) != simdjson::SUCCESS ||
        row["host"].get_string().get(host) != simdjson::SUCCESS ||
        !ReadNumber(row, "events", &look->events) || !ReadNumber(row, "oldest_ms", &oldest) ||
        !ReadNumber(row, "newest_ms", &newest))
        return false;
    look->host = host;
    look->oldestReceipt = TimeOf(oldest);
    look->newestReceipt = TimeOf(newest);
    return true;
}

// What a store of one machine has and a fleet has not gives hr::notImplemented.
class FleetStore final : public ZEL::IEventStore7, public IFleetLook {
public:
    FleetStore(fleet::FleetAddress address, ISessionListener& listener,
               ZEL::CountedPtr<ZEL::IEventStore7> keys)
        : address_(std::move(address)), listener_(listener), keys_(std::move(keys)) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        if (out == nullptr)
            return ZEL::TOBERR_INVALID_ARG;
        *out = nullptr;
        if (iid != iidFleetLook)
            return ZEL::TOBERR_NO_INTERFACE;
        AddRef();
        *out = static_cast<IFleetLook*>(this);
        return ZEL::TOB_OK;
    }
    std::int64_t AddRef() override { return ++references_; }
    std::int64_t Release() override {
        const std::int64_t left = --references_;
        if (left == 0)
            delete this;
        return left;
    }

    HRESULT MakeKey(IStringValue* text, std::int32_t kind, IStringValue** key) override {
        return keys_->MakeKey(text, kind, key);
    }
    HRESULT MakePropertyKey(ZEL::IEventProperties* event, IStringValue** key) override {
        return keys_->MakePropertyKey(event, key);
    }
    HRESULT MakeEnrichmentKey(IStringValue* baseKey, IStringValue** key) override {
        return keys_->MakeEnrichmentKey(baseKey, key);
    }
    HRESULT MakeFlaggedEnrichmentKey(IStringValue* baseKey, bool silentEnrichment,
                                     IStringValue** key) override {
        return keys_->MakeFlaggedEnrichmentKey(baseKey, silentEnrichment, key);
    }

    HRESULT Query(IStringValue* document, ZEL::IQueryCallback* callback,
                  ZEL::HANDLE stopEvent) override;
    HRESULT QueryEx(IStringValue*, ZEL::IQueryCallback*, ZEL::HANDLE, ZEL::HANDLE) override {
        return hr::notImplemented;
    }
    HRESULT LookAtHosts(std::vector<FleetHostLook>* hosts) override;
    HRESULT GetDatabaseErrors(ZEL::IValueCollection** out) override {
        *out = wm::CreateValueCollection();
        return *out != nullptr ? hr::ok : hr::outOfMemory;
    }
    HRESULT ClearDatabaseErrors() override { return hr::ok; }
    HRESULT GetOldestDate(IStringValue**, std::uint64_t*) override { return hr::notImplemented; }

    HRESULT Insert(IStringValue*, IStringValue*) override { return hr::notImplemented; }
    HRESULT InsertSilent(IStringValue*, IStringValue*) override { return hr::notImplemented; }
    HRESULT Purge(std::uint32_t) override { return hr::notImplemented; }
    HRESULT SetLiveMode(bool) override { return hr::notImplemented; }
    HRESULT Initialize() override { return hr::notImplemented; }
    HRESULT Stop() override { return hr::ok; }
    HRESULT Shutdown() override { return hr::ok; }

private:
    ~FleetStore() = default;

    HRESULT Told(HRESULT result, const std::string& problem) {
        if (Failed(result) && result != hr::aborted && !problem.empty())
            listener_.Say(problem);
        return result;
    }

    const fleet::FleetAddress address_;
    ISessionListener& listener_;
    const ZEL::CountedPtr<ZEL::IEventStore7> keys_;
    std::atomic<std::int64_t> references_{1};
};

HRESULT FleetStore::Query(IStringValue* document, ZEL::IQueryCallback* callback,
                          ZEL::HANDLE stopEvent) {
    if (callback == nullptr)
        return hr::invalidArgument;
    bool isComplete = true;
    const HRESULT result = ZEL::AtBoundary([&] {
        std::string buffer;
        const auto text = document != nullptr ? wm::Utf8Of(*document, buffer) : std::nullopt;
        if (!text || text->empty())
            return document == nullptr || text ? hr::invalidArgument : hr::unexpected;
        FleetAnswer answer(address_, FleetHosts(), *callback, stopEvent);
        const HRESULT end = answer.Give(std::string(*text));
        isComplete = answer.IsComplete();
        return Told(end, answer.Problem());
    });
    ZEL::IgnoreResult(callback->OnQueryResults(result, nullptr, true, isComplete, nullptr, 0),
                      "nothing follows");
    return result;
}

HRESULT FleetStore::LookAtHosts(std::vector<FleetHostLook>* hosts) {
    return ZEL::AtBoundary([&] {
        fleet::FleetClient client(address_, [this] { return listener_.Interrupted(); });
        fleet::FleetFailure failure;
        simdjson::dom::parser parser;
        bool isGood = true;
        const bool isDone = client.Select(
            fleet::HostsStatement(FleetHosts(), 0),
            [&](std::string_view line) {
                isGood = ReadHost(parser, line, &hosts->emplace_back());
                return isGood;
            },
            &failure);
        if (isDone && isGood)
            return hr::ok;
        return Told(fleetResult::lost, isDone ? "the fleet's server tells no hosts" : failure.text);
    });
}

}  // namespace

bool UseFleetServer(const FleetNames& names, std::string* problem) {
    fleet::FleetAddress address;
    if (!fleet::ReadFleetAddress(names.url, names.passwordFile, &address, problem))
        return false;
    UseFleet(address.url, names.hosts,
             [address](ISessionListener& listener, ZEL::CountedPtr<ZEL::IEventStore7> keys) {
                 return ZEL::CountedPtr<ZEL::IEventStore7>::Adopt(
                     new FleetStore(address, listener, std::move(keys)));
             });
    return true;
}

}  // namespace zel
