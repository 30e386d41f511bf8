#include "support/failingmemory.h"

#include <cstdlib>
#include <new>

namespace {

constexpr int unlimited = std::numeric_limits<int>::max();
thread_local int allowedAllocations = unlimited;
thread_local bool failed = false;

void* Allocate(std::size_t size) noexcept {
    if (allowedAllocations != unlimited && allowedAllocations-- <= 0) {
        allowedAllocations = 0;
        failed = true;
        return nullptr;
    }
    return std::malloc(size != 0 ? size : 1);
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* const memory = Allocate(size))
        return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace ZEL::test {

FailingMemory::FailingMemory(int allowed) noexcept {
    failed = false;
    allowedAllocations = allowed;
}

FailingMemory::~FailingMemory() {
    allowedAllocations = unlimited;
}

bool FailingMemory::Failed() const noexcept {
    return failed;
}

}  // namespace ZEL::test
