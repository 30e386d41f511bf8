#pragma once

#include <cstddef>
#include <utility>

namespace ZEL {

// Owns one reference of an object-model object. Copying adds a reference.
//
// A reference is counted once for each pointer that is kept, so each raw pointer that comes from
// elsewhere needs an answer to who owns its reference. The two ways in are apart for that reason:
// the constructor is for a pointer that is only lent and adds a reference, Adopt is for one that
// was given.
//
// T need not derive from one base; it has AddRef and Release. One CountedPtr is for one thread at a
// time, as any pointer; the object's own count is atomic, so that copies may go to different
// threads.
template <typename T>
class CountedPtr {
public:
    CountedPtr() noexcept = default;
    CountedPtr(std::nullptr_t) noexcept {}

    // Adds a reference of its own.
    explicit CountedPtr(T* object) noexcept : object_(object) {
        if (object_ != nullptr)
            object_->AddRef();
    }
    CountedPtr(const CountedPtr& other) noexcept : CountedPtr(other.object_) {}
    // Leaves the other one empty; no count changes.
    CountedPtr(CountedPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    // By value: the argument has its own reference already, and the former object is released when
    // the argument ends, after this pointer holds the new one. Assigning a pointer to itself is
    // harmless for the same reason.
    CountedPtr& operator=(CountedPtr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~CountedPtr() { Reset(); }

    // Takes over a reference that the caller owns.
    static CountedPtr Adopt(T* object) noexcept {
        CountedPtr result;
        result.object_ = object;
        return result;
    }

    // The pointer is empty before the reference goes: the object's destructor may come back to
    // here.
    void Reset() noexcept {
        if (T* old = std::exchange(object_, nullptr))
            old->Release();
    }
    // Gives the reference to the caller.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(object_, nullptr); }
    // For output parameters: drops what is held and gives the place for a new reference.
    [[nodiscard]] T** Receive() noexcept {
        Reset();
        return &object_;
    }
    // For operations that give any interface. The interface asked for must be T.
    [[nodiscard]] void** ReceiveVoid() noexcept { return reinterpret_cast<void**>(Receive()); }

    // Lends the pointer: the caller adds a reference when it keeps it for longer than this object
    // does.
    T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

private:
    T* object_ = nullptr;
};

}  // namespace ZEL
