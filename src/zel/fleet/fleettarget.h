#pragma once

#include <optional>
#include <string>

#include "fleet/fleetaddress.h"
#include "fleet/fleetclient.h"
#include "zel/commands.h"

namespace zel {

// The server that a command names. None, with a message, for an address or a password that can't be
// used.
std::optional<fleet::FleetAddress> AddressOf(const FleetOptions& options);
// Tells a failure; the value that the program ends with.
int TellFailure(const fleet::FleetFailure& failure);
// The host that is sent as: the one that was named, or this machine. Empty with a message.
std::string HostOf(const FleetOptions& options);

}  // namespace zel
