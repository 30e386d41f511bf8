#pragma once

#include <string>
#include <string_view>

namespace zel::fleet {

// What a machine is called in a fleet: 32 hexadecimal digits that stay as long as its system does,
// made of its machine identifier. That one is not to be seen by others, so it can't be got back.
// Empty with words where the machine has none.
std::string HostIdentifier(std::string* problem);
// The same of a text as /etc/machine-id has it; empty for another one.
std::string HostIdentifierOf(std::string_view machineId);

// Whether a text may stand for a machine in place of that: 1 to 255 characters, without control
// characters or quotes.
bool IsHostName(std::string_view text) noexcept;

// Where in the interval this host's turn comes, from 0 to below 1: hosts that were cut off together
// don't come back together.
double TurnOf(std::string_view host) noexcept;

}  // namespace zel::fleet
