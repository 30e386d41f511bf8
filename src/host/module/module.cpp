#include "common/itobbaseimpl.h"

// Each loadable component lists this source: the counter and the handle are its own.

namespace ZEL {

std::atomic<std::uint32_t>& LiveObjectCounter() noexcept {
    static std::atomic<std::uint32_t> counter{0};
    return counter;
}

void* ModuleHandle() noexcept {
    // Any address inside the library names it to a loader.
    static const char anchor = 0;
    return const_cast<char*>(&anchor);
}

}  // namespace ZEL
