#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/timearg.h"
#include "zel/commands.h"
#include "zel/results/zonetime.h"

namespace zel {

// What the flags of a query say, understood and checked. Values that need no reading stay in the
// options. Times are in the store's form, 24 characters of UTC.
struct QueryArguments {
    // The first time that the store can hold, so that without --since all events are asked for.
    std::string since = "1601-01-01T00:00:00.000Z";
    std::string until;           // empty: no end
    std::uint32_t sequence = 0;  // where to start among the rows of the time `since`
    std::vector<std::uint32_t> typeIds;
    std::optional<std::int32_t> limit;
};

// False, with words in `problem` that name the flag and point at the place. Empty flags count as
// absent. Reads no file and asks no store. `*arguments` is unspecified on failure. Distances such
// as -2h are reckoned from the moment of the call.
bool ReadArguments(const QueryOptions& options, QueryArguments* arguments, std::string* problem);

// A time as people write it (records/timearg.h), read in a zone where it tells none: a date and a
// day by its name, too. From now on, where it tells a distance.
TimeArgument ParseTimeInZone(const std::string& argument, const ZoneTime& zone);

// The form of all complaints about the value of a flag, so that a person finds the place, a byte of
// the value, in the same way each time.
std::string Complaint(const char* flag, const std::string& argument, const std::string& what,
                      std::size_t at = 0);

// The place behind which a query by receive-time goes on: the row's time and number. People pass it
// from one run to the next as TIME/NUMBER, so that form stays.
struct Cursor {
    std::string time;
    std::uint32_t sequence = 0;
};
std::string ToText(const Cursor& cursor);

}  // namespace zel
