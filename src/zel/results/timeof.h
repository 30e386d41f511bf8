#pragma once

#include <string_view>

namespace zel {

// The time that an event's text tells (begin_time), as it stands there; empty where it tells none.
// Goes over the text once and parses no more of it than it must: an answer is ordered by this, one
// event after the other. Points into `event`.
std::string_view TimeOf(std::string_view event);

}  // namespace zel
