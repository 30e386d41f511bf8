#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "connection/storedirectory.h"
#include "connection/storefolders.h"

namespace zel {

// What stands in a store's directory at one moment, whoever looked: this program, or the agent for
// those who may not.
struct StoreLook {
    std::string directory;  // UTF-8; of an agent's store not for this program to open
    StoreListing listing;
    std::vector<std::string> foreign;  // folders that are no databases, by name
    // When the newest folder of events was last written, UTC; empty: not known.
    std::string writtenUntil;
    // What the agent's store tells of itself (IEventStore3::GetOldestDate); nothing for a look
    // here.
    std::string oldestDate;
    std::uint64_t estimatedBytes = 0;
};

// A look by this process. One that is the store's `owner` finds in use what it has open itself, and
// touches no lock: to close a lock's file would give up its own.
StoreLook LookHere(const std::string& directory, bool isOwner);

// A look at the store that was named, by its agent where there is one. False, with one message,
// when it can't be had. Asks the agent each time.
bool LookAtStore(StoreNeed need, StoreLook* look, std::string* problem);
// The name of the newest folder of events; empty where there is none, or nobody tells.
std::string NewestEventsFolder();

// The form in which an agent tells it. False for what is not that.
std::string ToJson(const StoreLook& look);
bool FromJson(std::string_view json, StoreLook* look);

}  // namespace zel
