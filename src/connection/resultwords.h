#pragma once

#include <cstdint>
#include <string>

namespace zel {

// "0x80004005" and, for the codes that people meet, what they mean.
std::string Describe(std::int32_t result);

}  // namespace zel
