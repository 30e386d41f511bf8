#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/wmapi.h"

namespace ZEL {

// Names an event of wmLib. Null and the invalid value name none; a handle whose event was closed
// names none either, and is never given out again while a thread still waits on it. It is a number
// in the place of a pointer and points at nothing.
using HANDLE = void*;

inline HANDLE InvalidHandle() noexcept {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
}

}  // namespace ZEL

namespace wm {

inline constexpr std::uint32_t waitForever = 0xFFFFFFFF;  // milliseconds
// Results of WaitForAny besides the index of the handle that ended the wait.
inline constexpr std::uint32_t waitTimedOut = 258;
inline constexpr std::uint32_t waitFailed = 0xFFFFFFFF;
inline constexpr std::size_t mostWaitHandles = 64;

// Waits until one of `count` events is set or `timeoutMs` milliseconds of monotonic time have
// gone, and returns the lowest index that is set. Only that event is consumed, and only when it is
// auto-reset: of two waiters, exactly one gets one setting. A null, invalid or closed handle, or a
// count of 0 or above mostWaitHandles, gives waitFailed at once. An event that is closed during the
// wait stays alive for the waiter.
WMLIB_API std::uint32_t WaitForAny(std::size_t count, const ZEL::HANDLE* handles,
                                   std::uint32_t timeoutMs) noexcept;

// Who takes a setting back: the one wait that it ends, or Reset alone. Automatic is for work to be
// done, which one thread should take up; manual is for a state that all should see, such as a stop.
enum class EventReset { automatic, manual };
enum class EventState { reset, set };

// An event that threads wait for. The object is the owner: closing or destroying it closes the
// handle. Handles can be used by any thread; Create and Close need the owner's own ordering against
// each other, not against waiters and setters.
class WMLIB_API EventObject {
public:
    EventObject() noexcept = default;
    ~EventObject() { Close(); }
    EventObject(const EventObject&) = delete;
    EventObject& operator=(const EventObject&) = delete;

    // False when memory runs out. An existing event is closed first.
    bool Create(EventReset reset, EventState initially = EventState::reset) noexcept;
    // A wait in progress goes on and is ended by its other events or by its time alone.
    void Close() noexcept;
    // Another thread may close it at once: for the owner, or as a hint.
    bool Exists() const noexcept { return Handle() != nullptr; }
    // Both return false when there is no event. Setting an event that is set changes nothing:
    // settings are not counted.
    bool Set() noexcept;
    bool Reset() noexcept;
    // Null when there is no event. Lent: it ends with the event, and nobody but the owner closes
    // it.
    ZEL::HANDLE Handle() const noexcept { return handle_.load(std::memory_order_acquire); }

private:
    std::atomic<ZEL::HANDLE> handle_{nullptr};
};

// As EventObject::Set, for somebody who holds only the handle.
WMLIB_API bool SetEventHandle(ZEL::HANDLE handle) noexcept;

}  // namespace wm
