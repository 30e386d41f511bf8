#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zel/commands.h"

namespace zel {

// What the flags of a query say, understood and checked. Values that need no reading stay in the
// options.
struct QueryArguments {
    std::string since = "1601-01-01T00:00:00.000Z";
    std::string until;           // empty: no end
    std::uint32_t sequence = 0;  // where to start among the rows of the time `since`
    std::vector<std::uint32_t> typeIds;
    std::optional<std::int32_t> limit;
};

// False, with words in `problem` that name the flag and point at the place. Empty flags count as
// absent.
bool ReadArguments(const QueryOptions& options, QueryArguments* arguments, std::string* problem);

// The place behind which a query by receive-time goes on: the row's time and number.
struct Cursor {
    std::string time;
    std::uint32_t sequence = 0;
};
std::string ToText(const Cursor& cursor);

}  // namespace zel
