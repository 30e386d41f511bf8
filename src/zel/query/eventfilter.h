#pragma once

#include <cstdint>
#include <string_view>

namespace zel {

// A condition on an event's text, tested on what the store's own conditions have let through.
// Called once for each event, on the thread of the query.
class EventFilter {
public:
    virtual ~EventFilter() = default;
    // `event`: UTF-8, as the store gave it. What can't be read does not fit.
    virtual bool Fits(std::string_view event) = 0;
    // How many could not be read, and so may be missing from the answer.
    virtual std::uint64_t Untested() const noexcept { return 0; }
};

}  // namespace zel
