#pragma once

#include <cstddef>

namespace wm {

// Memory for the texts that cross the public boundary. A record's text is too large for what the
// system's allocator keeps at hand for a thread, and its slow path then costs more than all else
// that is done with the text. Since a thread mostly makes one record and its key after another, or
// one batch of results, each keeps the memory of the last ones for the next.

// Null when memory runs out. `*bytes` becomes what was really taken, which is at least as much.
void* AllocateTextMemory(std::size_t* bytes) noexcept;
// `bytes` is what the allocation took. On any thread.
void FreeTextMemory(void* memory, std::size_t bytes) noexcept;

}  // namespace wm
