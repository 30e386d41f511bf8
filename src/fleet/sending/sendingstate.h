#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "fleet/fleetaddress.h"

namespace zel::fleet {

// How far one store's way to one fleet has come.
struct SendingState {
    std::string fleet;  // its address
    std::string host;
    std::string
        place;  // in the order of receipt; the fleet has all ahead of it. Empty: nothing yet
    std::uint64_t sent = 0;     // rows, repeats of one included
    std::uint64_t refused = 0;  // rows that were put aside
    std::uint64_t missed = 0;   // events, at most, that went with a purge before they were sent
    // Folders of enrichments of which the fleet has all, as they looked then.
    std::map<std::string, std::string> folders;
};

// The file that keeps it from one process to the next: text, replaced as a whole, so that a process
// that is killed leaves the former one and rows come twice rather than never. For one thread at a
// time.
class StateFile {
public:
    explicit StateFile(std::string name) : name_(std::move(name)) {}

    // Where there is no file yet the state keeps its place; it has to name fleet and host. False
    // with words for what can't be read, or is another fleet's or host's.
    bool Load(SendingState* state, bool* isThere, std::string* problem) const;
    bool Save(const SendingState& state, std::string* problem) const;
    const std::string& Name() const noexcept { return name_; }

private:
    const std::string name_;
};

// What the file for a fleet is called, in a folder of many: the same for one address and host.
std::string StateFileName(const FleetAddress& address, const std::string& host);
// An address as the state names it.
std::string NameOf(const FleetAddress& address);

}  // namespace zel::fleet
