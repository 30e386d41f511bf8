#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "common/countedptr.h"
#include "connection/agentrequest.h"
#include "connection/sessionlistener.h"
#include "zelstore/ieventstore.h"

// A fleet in the place of a store: what sessions open, and what only those who ask it need to know.
namespace zel {

// Makes the store that stands for a fleet. `keys` is a store of this process that need not be
// started. Null, with a message told, when the fleet can't be asked.
using FleetMaker = std::function<ZEL::CountedPtr<ZEL::IEventStore7>(
    ISessionListener& listener, ZEL::CountedPtr<ZEL::IEventStore7> keys)>;

// From now on sessions of this process reach a fleet, named `place` to people, in the place of a
// store; of these hosts alone, or of all when there is none. To be called before the first session.
void UseFleet(std::string place, std::vector<std::string> hosts, FleetMaker maker);
bool IsFleetUsed() noexcept;
// What was given to UseFleet; nothing without it.
const std::string& FleetPlace() noexcept;
const std::vector<std::string>& FleetHosts() noexcept;
const FleetMaker& FleetMakerInUse() noexcept;

// A face of a query's callback, asked for by QueryInterface as its others are, by a fleet's store
// alone: in which order rows are to come, and of which hosts.
class IFleetCallback : public ZEL::ITobBase {
public:
    enum class Order {
        asStored,  // part by part of the document, the oldest first
        // Over all parts.
        oldestFirst,
        newestFirst,
    };
    virtual Order RowOrder() = 0;
    // One more condition on the host; empty: none. Good during the query.
    virtual std::string_view OnlyHost() = 0;

protected:
    ~IFleetCallback() = default;
};
inline constexpr ZEL::GUID iidFleetCallback = ZEL::MakeGuid("2F6B8D14-90C3-4E7A-8B52-D1A4C7E03F96");

// Results that only a fleet's store gives.
namespace fleetResult {
inline constexpr ZEL::HRESULT lost = ZEL::FromWin32(1232);     // no answer, or not a whole one
inline constexpr ZEL::HRESULT refused = ZEL::FromWin32(4320);  // the question is none for a fleet
}  // namespace fleetResult
// Whether what stands for a store could not be asked, which for a person is as a store that can't
// be opened.
constexpr bool IsStoreOut(ZEL::HRESULT result) noexcept {
    return IsAgentOut(result) || result == fleetResult::lost;
}

// What a fleet holds of each host, for those who want to know whether an answer can be whole.
struct FleetHostLook {
    std::string host;
    std::uint64_t events = 0;
    std::string oldestReceipt, newestReceipt;  // UTC, 24 characters
};
// A face of a fleet's store.
class IFleetLook : public ZEL::ITobBase {
public:
    // All hosts that are asked, by name. The question's failure, told to the listener.
    virtual ZEL::HRESULT LookAtHosts(std::vector<FleetHostLook>* hosts) = 0;

protected:
    ~IFleetLook() = default;
};
inline constexpr ZEL::GUID iidFleetLook = ZEL::MakeGuid("B1E7340C-5A2D-4F98-9C61-7E08F3D52A4B");

}  // namespace zel
