#pragma once

#include <cstdint>
#include <string>

namespace zel {

// "0x80004005" and, for the codes that people meet, what they mean. Any other code is told by its
// number alone: words that guess would send people the wrong way. The text goes into the middle of
// a message, so it has neither capital nor stop.
std::string Describe(std::int32_t result);

}  // namespace zel
