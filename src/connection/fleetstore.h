#pragma once

#include <string>
#include <vector>

#include "connection/fleetuse.h"

namespace zel {

// What was named of a fleet on a command line.
struct FleetNames {
    std::string url;                 // http[s]://[USER@]HOST[:PORT][/DATABASE]
    std::string passwordFile;        // empty: none
    std::vector<std::string> hosts;  // that alone are asked; empty: all
};

// From now on sessions of this process ask the fleet's server (UseFleet), as one store of all
// hosts. Nothing is sent yet. False, with words, for an address or a password that can't be used.
//
// Its Query gives what the stores of the hosts would give together, each event of a host once, in
// one order of time over all hosts; part by part of the document, unless the callback wants another
// order (IFleetCallback). Callbacks that take rows (IQueryRows) get each with its key, its host and
// its enrichments in the text already; others get batches. Rows by time of receipt come in batches,
// of one host. A set stop event, looked at every 50 ms, or a callback that refuses ends the whole
// query with hr::aborted, and the server's work with it. What can't be had is told to the listener
// in words, and given as a result of fleetResult. A server that is busy or gone is asked again a
// few times, from the row on that came last.
//
// There is no table of failures: an answer is whole, or the query fails. All that writes gives
// hr::notImplemented. Any thread may ask, each over a connection of its own.
bool UseFleetServer(const FleetNames& names, std::string* problem);

}  // namespace zel
