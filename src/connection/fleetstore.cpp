#include "connection/fleetstore.h"

#include <simdjson.h>

#include <charconv>
#include <utility>

#include "common/boundary.h"
#include "common/valuetext.h"
#include "connection/distantstore.h"
#include "connection/fleetanswer.h"
#include "records/eventtime.h"

namespace zel {

namespace {

using ZEL::HRESULT;
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

class FleetStore final : public DistantStore, public IFleetLook {
public:
    FleetStore(fleet::FleetAddress address, ISessionListener& listener,
               ZEL::CountedPtr<ZEL::IEventStore7> keys)
        : DistantStore(listener, std::move(keys)), address_(std::move(address)) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        if (out == nullptr || iid != iidFleetLook)
            return DistantStore::QueryInterface(iid, out);
        AddRef();
        *out = static_cast<IFleetLook*>(this);
        return ZEL::TOB_OK;
    }
    std::int64_t AddRef() override { return DistantStore::AddRef(); }
    std::int64_t Release() override { return DistantStore::Release(); }

    HRESULT LookAtHosts(std::vector<FleetHostLook>* hosts) override;
    // A fleet has no databases of which one could fail: a question as a whole does.
    HRESULT GetDatabaseErrors(ZEL::IValueCollection** out) override {
        *out = wm::CreateValueCollection();
        return *out != nullptr ? hr::ok : hr::outOfMemory;
    }
    HRESULT ClearDatabaseErrors() override { return hr::ok; }

private:
    ~FleetStore() override = default;

    HRESULT Ask(const std::string& document, ZEL::IQueryCallback& callback, ZEL::HANDLE stopEvent,
                bool* isComplete, std::string* problem) override {
        FleetAnswer answer(address_, FleetHosts(), callback, stopEvent);
        const HRESULT end = answer.Give(document);
        *isComplete = answer.IsComplete();
        *problem = answer.Problem();
        return end;
    }

    const fleet::FleetAddress address_;
};

HRESULT FleetStore::LookAtHosts(std::vector<FleetHostLook>* hosts) {
    return ZEL::AtBoundary([&] {
        fleet::FleetClient client(address_, [this] { return Listener().Interrupted(); });
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
