#pragma once

#include <limits>

// Memory that runs out on one thread. A program that links failingmemory.cpp has it.
namespace ZEL::test {

// While it lives, allocations of this thread fail from the one behind `allowed` others on. Nothing
// that asserts may run under it.
class FailingMemory {
public:
    explicit FailingMemory(int allowed) noexcept;
    ~FailingMemory();
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    // Whether any allocation failed so far.
    bool Failed() const noexcept;
};

}  // namespace ZEL::test
