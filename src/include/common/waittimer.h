#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "common/wmapi.h"

namespace wm {

// Calls back again and again on a thread of its own. After Stop has returned no callback runs, save
// when Stop is called by the callback itself, which then is the last one.
class WMLIB_API RegisteredWaitTimer {
public:
    RegisteredWaitTimer();
    ~RegisteredWaitTimer();
    RegisteredWaitTimer(const RegisteredWaitTimer&) = delete;
    RegisteredWaitTimer& operator=(const RegisteredWaitTimer&) = delete;

    // False when memory runs out; LastError then tells the Win32 code.
    bool Create(std::function<void()> callback);
    // The first call comes after one period. False when it ticks already, for a period of 0, before
    // Create, and without a thread.
    bool Start(std::uint32_t periodMs);
    bool IsActive() const noexcept;
    void Stop() noexcept;
    // Win32 code of the last failure, 0 for none.
    std::uint32_t LastError() const noexcept;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace wm
