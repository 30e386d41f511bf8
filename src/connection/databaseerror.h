#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zelstore/ieventstore.h"

namespace zel {

// How often one kind of operation failed on a database.
struct DatabaseError {
    // Its name in the store's directory, UTF-8, not a path.
    std::string folder;
    std::uint32_t operation = 0;  // 1 open, 2 read, 3 write; 0 when another kind failed first
    std::uint32_t count = 0;
    std::int32_t lastResult = 0;

    // A word for a sentence: "open", "read", "write", or "use" where the operation is not known.
    const char* Operation() const;
    // The whole failure as one message for people, its last result in words.
    std::string Text() const;
    friend bool operator==(const DatabaseError&, const DatabaseError&) = default;
};

// What a store's table of errors holds. False when it can't be read. Entries are put behind those
// that `errors` holds already. Asks only and clears nothing, so that two readers see the same.
bool ReadDatabaseErrors(ZEL::IEventStore& store, std::vector<DatabaseError>* errors);

}  // namespace zel
