#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "connection/databaseerror.h"
#include "connection/fleetuse.h"

namespace zel {

// What an answer was made of, told behind it: without that nobody knows whether "nothing" means
// that there is nothing.
struct Trailer {
    std::uint64_t found = 0;
    std::uint64_t rows = 0;   // that the store gave, to be looked at
    std::size_t folders = 0;  // of events, that were asked
    std::vector<DatabaseError> failures;
    std::string oldest;  // date of the oldest of them; empty: there is none
    // When the newest was last written: what an agent has not flushed since is in no answer. UTC;
    // empty: not known.
    std::string writtenUntil;
    bool isBeingWritten = false;  // by another process
    // Of a fleet in place of folders and what is told of them: the hosts that were asked.
    bool isOfFleet = false;
    std::vector<FleetHostLook> hosts;
    // Whether all that was asked for was looked at, and whether a limit has ended the walk before
    // its end.
    bool isWhole = true, hasMore = false;

    // One JSON text, {"trailer":{...}}.
    std::string Json() const;
    // One line for people, and for a fleet one more for each host that is silent.
    std::string Words() const;
};
// Whether nothing has come from a host for longer than an hour: it is off, or what sends is stuck.
bool IsSilent(const FleetHostLook& host);

// Looks at the store's directory, for the facts that stand in no row. To be made ahead of the walk:
// what is written meanwhile may or may not be seen. Opens no database. A fleet is asked for its
// hosts.
Trailer BeginTrailer(ZEL::IEventStore7& store);

}  // namespace zel
