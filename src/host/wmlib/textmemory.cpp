#include "host/wmlib/textmemory.h"

#include <array>
#include <new>
#include <utility>

namespace wm {

namespace {

// Smaller ones come from the allocator's own store of the thread; larger ones are rare, and not
// worth holding.
constexpr std::size_t smallestKept = 1024;
constexpr std::size_t largestKept = 64 * 1024;
constexpr std::size_t roundedTo = 512;
// Memory is not handed out for a text that would use less than this part of it.
constexpr std::size_t mostWaste = 8;

// Address sanitizers see the use of freed texts only if the memory is really freed.
#ifdef __SANITIZE_ADDRESS__
constexpr bool keepsMemory = false;
#else
constexpr bool keepsMemory = true;
#endif

struct Block {
    void* memory = nullptr;
    std::size_t bytes = 0;
};

// A record's text and its key.
struct Spares {
    ~Spares();
    std::array<Block, 2> blocks;
};

thread_local Spares spares;
// A text may be freed by what ends behind the thread's spare memory.
thread_local bool threadEnds = false;

Spares::~Spares() {
    threadEnds = true;
    for (const Block& block : blocks)
        ::operator delete(block.memory);
}

bool IsKept(std::size_t bytes) noexcept {
    return keepsMemory && bytes >= smallestKept && bytes <= largestKept && !threadEnds;
}

}  // namespace

void* AllocateTextMemory(std::size_t* bytes) noexcept {
    if (IsKept(*bytes)) {
        for (Block& spare : spares.blocks) {
            if (spare.bytes < *bytes || spare.bytes / mostWaste > *bytes)
                continue;
            *bytes = spare.bytes;
            return std::exchange(spare, {}).memory;
        }
        *bytes = (*bytes + roundedTo - 1) / roundedTo * roundedTo;
    }
    return ::operator new(*bytes, std::nothrow);
}

void FreeTextMemory(void* memory, std::size_t bytes) noexcept {
    Block freed{memory, bytes};
    if (IsKept(bytes)) {
        // The smaller ones move down, and the smallest goes.
        for (Block& spare : spares.blocks)
            if (freed.bytes > spare.bytes)
                std::swap(freed, spare);
    }
    ::operator delete(freed.memory);
}

}  // namespace wm
