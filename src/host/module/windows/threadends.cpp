// Linked into every program and library for Windows.
//
// The cross compiler's own libraries keep what belongs to a thread in memory of which one table
// knows, and the destructors to run at the thread's end in another. The tables are gone through in
// the order in which they were first used, which is the memory's first: destructors would then run
// on memory that is freed already. A destructor that does nothing, told ahead of everything else,
// puts the tables in order.

extern "C" int __cxa_thread_atexit(void (*destructor)(void*), void* object, void* module) noexcept;

namespace {

struct DestructorsFirst {
    DestructorsFirst() noexcept {
        __cxa_thread_atexit([](void*) {}, nullptr, nullptr);
    }
};

[[gnu::init_priority(101)]] const DestructorsFirst destructorsFirst;

}  // namespace
