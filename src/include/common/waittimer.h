#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "common/wmapi.h"

namespace wm {

// Calls back again and again on a thread of its own. After Stop has returned no callback runs, save
// when Stop is called by the callback itself, which then is the last one.
//
// The period is counted from the end of one call to the next, in time that does not jump with the
// clock: a slow callback delays the ticks and they never pile up. The callback is called under no
// lock, and what it throws is traced and does not end the ticking.
//
// Any thread may call any operation; Create is for one that has made sure that nobody starts the
// timer meanwhile.
class WMLIB_API RegisteredWaitTimer {
public:
    RegisteredWaitTimer();
    ~RegisteredWaitTimer();
    RegisteredWaitTimer(const RegisteredWaitTimer&) = delete;
    RegisteredWaitTimer& operator=(const RegisteredWaitTimer&) = delete;

    // False when memory runs out; LastError then tells the Win32 code. Stops a timer that ticks.
    bool Create(std::function<void()> callback);
    // The first call comes after one period. False when it ticks already, for a period of 0, before
    // Create, and without a thread.
    bool Start(std::uint32_t periodMs);
    bool IsActive() const noexcept;
    // Waits for a callback that is running. A caller must therefore hold no lock that the callback
    // takes. Start may follow.
    void Stop() noexcept;
    // Win32 code of the last failure, 0 for none.
    std::uint32_t LastError() const noexcept;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace wm
