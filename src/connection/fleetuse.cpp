#include "connection/fleetuse.h"

#include <utility>

namespace zel {

namespace {

// Set once, ahead of all sessions, and then only read.
struct Use {
    std::string place;
    std::vector<std::string> hosts;
    FleetMaker maker;
};
Use& InUse() {
    static Use use;
    return use;
}

}  // namespace

void UseFleet(std::string place, std::vector<std::string> hosts, FleetMaker maker) {
    InUse() = {std::move(place), std::move(hosts), std::move(maker)};
}

bool IsFleetUsed() noexcept {
    return static_cast<bool>(InUse().maker);
}

const std::string& FleetPlace() noexcept {
    return InUse().place;
}

const std::vector<std::string>& FleetHosts() noexcept {
    return InUse().hosts;
}

const FleetMaker& FleetMakerInUse() noexcept {
    return InUse().maker;
}

}  // namespace zel
