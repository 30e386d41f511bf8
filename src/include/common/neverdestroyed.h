#pragma once

#include <new>
#include <utility>

namespace wm {

// For objects that stand for the whole process: threads of a host may use them until its very end,
// so that nothing ever destroys them. They need no memory of their own.
//
//   static NeverDestroyed<Table> table;
//   return *table;
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
