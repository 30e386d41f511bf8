#pragma once

#include <string_view>

namespace zel {

// Why a text is no key of an event, in words; empty when it is one. The store would take any text
// for a key. Of a key's fields the date and the shape are looked at.
std::string_view WhyNoEventKey(std::string_view key);
// The same for a key that an enrichment is to stand under, which may have its number already.
std::string_view WhyNoKeyToEnrich(std::string_view key);

}  // namespace zel
