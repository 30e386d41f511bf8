#pragma once

#include <cstdint>
#include <string_view>

namespace zel {

// A size in megabytes of 0x100000 bytes: a whole number with M, G or T behind it (also MiB, GiB,
// TiB, in either case), or 0. False for anything else and for what 32 bits don't hold. A bare
// number is refused, since nobody can tell whether bytes or megabytes were meant, and a slip would
// delete what somebody wanted to keep. `*megabytes` is unspecified on failure.
bool ParseMegabytes(std::string_view text, std::uint32_t* megabytes);

}  // namespace zel
