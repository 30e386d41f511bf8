#pragma once

#include <new>
#include <utility>

namespace wm {

// For objects that stand for the whole process: threads of a host may use them until its very end,
// so that nothing ever destroys them. They need no memory of their own.
//
//   static NeverDestroyed<Table> table;
//   return *table;
// As a local static it is made at its first use, by one thread while others wait. An object with
// static storage would be destroyed while threads that the process does not wait for still use it,
// in an order that no module knows; memory from the heap could be missing at that first use.
//
// Whatever T holds is left to the system: it must need no closing to be whole, as a file does that
// is flushed only on closing.
template <typename T>
class NeverDestroyed {
public:
    template <typename... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments)
        : object_(::new (room_) T(std::forward<Arguments>(arguments)...)) {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& operator*() const noexcept { return *object_; }

private:
    alignas(T) unsigned char room_[sizeof(T)];
    T* const object_;
};

}  // namespace wm
