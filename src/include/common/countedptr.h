#pragma once

#include <cstddef>
#include <utility>

namespace ZEL {

// Owns one reference of an object-model object. Copying adds a reference.
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
    CountedPtr(CountedPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
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
    [[nodiscard]] void** ReceiveVoid() noexcept { return reinterpret_cast<void**>(Receive()); }

    T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

private:
    T* object_ = nullptr;
};

}  // namespace ZEL
