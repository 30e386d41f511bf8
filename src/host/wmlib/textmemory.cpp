#include "host/wmlib/textmemory.h"

#include <array>
#include <new>

// Spare memory of each thread for the texts of records and results. Sizes are rounded up to whole
// shelves, so that texts of nearly the same length share memory; a freed block goes onto the shelf
// of its size and serves the next text of that size. A query frees a whole batch of results and
// then makes the next one, so what is kept is bounded by bytes and not by number.
//
// Only threads that have made such a text keep any: one that merely drops results would hold memory
// for nothing. Blocks belong to threads, not to texts: one that was made here and freed there
// becomes the other thread's spare. There is no lock and nothing to tidy up.

namespace wm {

namespace {

// Smaller ones come from the allocator's own store of the thread; larger ones are rare, and not
// worth holding.
constexpr std::size_t smallestKept = 1024;
constexpr std::size_t shelfStep = 1024;
constexpr std::size_t shelfCount = 16;
constexpr std::size_t largestKept = shelfCount * shelfStep;
constexpr std::size_t mostKept = std::size_t{512} * 1024;  // bytes a thread

// Sanitizers see the use of freed texts only if the memory is really freed.
#ifdef WM_KEEP_NO_MEMORY
constexpr bool keepsMemory = false;
#else
constexpr bool keepsMemory = true;
#endif

// Stands at the start of a spare block.
struct Spare {
    Spare* next;
};

struct Spares {
    ~Spares();
    std::array<Spare*, shelfCount> shelves{};
    std::size_t bytes = 0;
    bool makesTexts = false;  // a thread that only drops them has no use for their memory
};

thread_local Spares spares;
// A text may be freed by what ends after the thread's spare memory. A plain flag needs no
// destructor and so can be read until the very end of the thread.
thread_local bool threadEnds = false;

Spares::~Spares() {
    threadEnds = true;
    for (Spare* first : shelves) {
        while (first != nullptr) {
            Spare* const next = first->next;
            ::operator delete(first);
            first = next;
        }
    }
}

// Asked with the size that was wanted and again with the one that was taken.
bool IsKept(std::size_t bytes) noexcept {
    return keepsMemory && bytes >= smallestKept && bytes <= largestKept && !threadEnds;
}

Spare*& ShelfOf(std::size_t bytes) noexcept {
    return spares.shelves[(bytes - 1) / shelfStep];
}

}  // namespace

// The caller keeps the size beside the text and gives it back when he frees it.
void* AllocateTextMemory(std::size_t* bytes) noexcept {
    if (IsKept(*bytes)) {
        spares.makesTexts = true;
        Spare*& first = ShelfOf(*bytes);
        *bytes = (*bytes + shelfStep - 1) / shelfStep * shelfStep;
        if (Spare* const spare = first) {
            first = spare->next;
            spares.bytes -= *bytes;
            return spare;
        }
    }
    return ::operator new(*bytes, std::nothrow);
}

void FreeTextMemory(void* memory, std::size_t bytes) noexcept {
    // One that was made while its thread ended has its bare size, and no place on a shelf.
    if (!IsKept(bytes) || bytes % shelfStep != 0 || !spares.makesTexts ||
        spares.bytes + bytes > mostKept)
        return ::operator delete(memory);
    Spare*& first = ShelfOf(bytes);
    first = ::new (memory) Spare{first};
    spares.bytes += bytes;
}

}  // namespace wm
