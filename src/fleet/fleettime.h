#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zel::fleet {

// A time of the one form that the store writes, 2026-11-12T10:00:00.000Z, in milliseconds since
// 1970; 0 for one before that. None for any other text and for a date that does not exist.
std::optional<std::uint64_t> MillisecondsOf(std::string_view time);
// Whether it has that form; digits are all that is looked at.
bool HasUsualForm(std::string_view time);

}  // namespace zel::fleet
