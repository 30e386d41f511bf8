#include "host/wmlib/textmemory.h"

#include <array>
#include <new>
#include <utility>

// Spare memory of each thread for the texts of records. Two blocks are kept, in the order in which
// they were freed, and only on threads that have made such a text: a thread that merely drops
// results would otherwise hold memory for nothing. A block is given to any text that fits and does
// not waste too much of it; sizes are rounded, so that records of nearly the same length share
// blocks.
//
// Blocks belong to threads, not to texts: one that was made here and freed there becomes the other
// thread's spare. There is no lock and nothing to tidy up, and what a thread can hold back is
// bounded by two blocks of the greatest size.

namespace wm {

namespace {

// Smaller ones come from the allocator's own store of the thread; larger ones are rare, and not
// worth holding.
constexpr std::size_t smallestKept = 1024;
constexpr std::size_t largestKept = std::size_t{16} * 1024;
constexpr std::size_t roundedTo = 512;
// Memory is not handed out for a text that would use less than this part of it.
constexpr std::size_t mostWaste = 8;

// Sanitizers see the use of freed texts only if the memory is really freed.
#ifdef WM_KEEP_NO_MEMORY
constexpr bool keepsMemory = false;
#else
constexpr bool keepsMemory = true;
#endif

struct Block {
    void* memory = nullptr;
    std::size_t bytes = 0;
};

// A record's text and its key; the one freed last comes first.
struct Spares {
    ~Spares();
    std::array<Block, 2> blocks;
    bool makesTexts = false;  // a thread that only drops them has no use for their memory
};

thread_local Spares spares;
// A text may be freed by what ends after the thread's spare memory. A plain flag needs no
// destructor and so can be read until the very end of the thread.
thread_local bool threadEnds = false;

Spares::~Spares() {
    threadEnds = true;
    for (const Block& block : blocks)
        ::operator delete(block.memory);
}

// Asked with the size that was wanted and again with the one that was taken.
bool IsKept(std::size_t bytes) noexcept {
    return keepsMemory && bytes >= smallestKept && bytes <= largestKept && !threadEnds;
}

// The smallest spare that is large enough and not much too large, or null.
Block* FindSpare(std::size_t bytes) noexcept {
    Block* best = nullptr;
    for (Block& spare : spares.blocks)
        if (spare.bytes >= bytes && spare.bytes / mostWaste <= bytes &&
            (best == nullptr || spare.bytes < best->bytes))
            best = &spare;
    return best;
}

}  // namespace

// The caller keeps the size beside the text and gives it back when he frees it.
void* AllocateTextMemory(std::size_t* bytes) noexcept {
    if (IsKept(*bytes)) {
        spares.makesTexts = true;
        if (Block* const spare = FindSpare(*bytes)) {
            *bytes = spare->bytes;
            return std::exchange(*spare, {}).memory;
        }
        *bytes = (*bytes + roundedTo - 1) / roundedTo * roundedTo;
    }
    return ::operator new(*bytes, std::nothrow);
}

// The block freed longest ago makes room.
void FreeTextMemory(void* memory, std::size_t bytes) noexcept {
    if (IsKept(bytes) && spares.makesTexts) {
        Block& first = spares.blocks[0];
        Block& last = spares.blocks[1];
        if (first.memory != nullptr)
            std::swap(first, last);
        memory = std::exchange(first, Block{memory, bytes}).memory;
    }
    ::operator delete(memory);
}

}  // namespace wm
