#pragma once

#include <cstdint>
#include <string_view>

namespace zel {

// A size in megabytes of 0x100000 bytes: a whole number with M, G or T behind it (also MiB, GiB,
// TiB, in either case), or 0. False for anything else and for what 32 bits don't hold.
bool ParseMegabytes(std::string_view text, std::uint32_t* megabytes);

}  // namespace zel
