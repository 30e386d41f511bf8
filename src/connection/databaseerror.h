#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zelstore/ieventstore.h"

namespace zel {

// How often one kind of operation failed on a database.
struct DatabaseError {
    std::string folder;
    std::uint32_t operation = 0;  // 1 open, 2 read, 3 write; 0 when another kind failed first
    std::uint32_t count = 0;
    std::int32_t lastResult = 0;

    const char* Operation() const;
    std::string Text() const;
    friend bool operator==(const DatabaseError&, const DatabaseError&) = default;
};

// What a store's table of errors holds. False when it can't be read.
bool ReadDatabaseErrors(ZEL::IEventStore& store, std::vector<DatabaseError>* errors);

}  // namespace zel
