#pragma once

#include <string_view>

#include "hunt/rule.h"

namespace zel {

// Whether all of the text fits. Costs at most the product of both lengths, whatever the pattern.
// `cased`: letter case matters. Any thread.
bool Fits(const TextPattern& pattern, bool cased, std::string_view text) noexcept;

}  // namespace zel
