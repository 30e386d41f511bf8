#include "common/waittimer.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <system_error>
#include <thread>

#include "common/trace.h"
#include "platform.h"

// A timer with a thread of its own, which sleeps for a period, calls and sleeps again. The thread
// is detached and shares the state with the object, since a callback may stop or destroy its own
// timer and nobody can wait for a thread from within it.
//
// Stop promises that no callback runs once it has returned. It sets a flag, wakes the sleep and
// waits until the thread says that it has ended; the flag is looked at under the lock after each
// sleep, so that no call is decided on once it is set, and one that was is waited for. Somebody
// else may start the timer again while Stop waits: the number of the run tells that the one that
// was to end has ended.

namespace wm {

struct RegisteredWaitTimer::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::function<void()> callback;
    std::thread::id thread;
    bool active = false;     // a thread ticks
    bool stopping = false;   // it is to end
    std::uint64_t runs = 0;  // tells a Stop of one run from the next
    std::uint32_t lastError = 0;

    void Tick(std::uint32_t periodMs);
};

// The thread's body. A tick that takes longer than the period delays the next one; none is made up
// for.
void RegisteredWaitTimer::State::Tick(std::uint32_t periodMs) {
    const std::chrono::milliseconds period(periodMs);
    std::unique_lock lock(mutex);
    while (!changed.wait_for(lock, period, [this] { return stopping; })) {
        // A copy, so that Create from within the callback does not destroy what is running.
        const std::function<void()> call = callback;
        lock.unlock();
        try {
            call();
        } catch (...) {
            Trace(message::timerCallbackThrew, ZEL::hr::unexpected);
        }
        lock.lock();
    }
    // Others may go on from here; the thread's own share keeps the state alive until it is through.
    active = false;
    thread = {};
    changed.notify_all();
}

RegisteredWaitTimer::RegisteredWaitTimer() : state_(std::make_shared<State>()) {}

RegisteredWaitTimer::~RegisteredWaitTimer() {
    Stop();
}

bool RegisteredWaitTimer::Create(std::function<void()> callback) {
    Stop();
    const std::lock_guard lock(state_->mutex);
    state_->callback = std::move(callback);
    state_->lastError = 0;
    return true;
}

bool RegisteredWaitTimer::Start(std::uint32_t periodMs) {
    const std::shared_ptr<State> state = state_;
    const std::lock_guard lock(state->mutex);
    if (state->active || !state->callback || periodMs == 0) {
        state->lastError = 87;  // bad argument
        return false;
    }
    try {
        // The new thread first takes the lock that is held here, so it sees the state complete.
        std::thread thread([state, periodMs] { state->Tick(periodMs); });
        state->active = true;
        state->stopping = false;
        ++state->runs;
        state->thread = thread.get_id();
        thread.detach();
        return true;
    } catch (const std::system_error& error) {
        state->lastError = platform::Win32Code(error.code());
    } catch (...) {
        state->lastError = 14;  // out of memory
    }
    return false;
}

bool RegisteredWaitTimer::IsActive() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->active;
}

void RegisteredWaitTimer::Stop() noexcept {
    const std::shared_ptr<State> state = state_;
    std::unique_lock lock(state->mutex);
    if (!state->active)
        return;
    state->stopping = true;
    state->changed.notify_all();
    if (state->thread == std::this_thread::get_id())
        return;  // the callback stops its own timer: this tick is the last
    const std::uint64_t run = state->runs;
    state->changed.wait(lock, [&] { return !state->active || state->runs != run; });
}

std::uint32_t RegisteredWaitTimer::LastError() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->lastError;
}

}  // namespace wm
