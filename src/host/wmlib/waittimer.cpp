#include "common/waittimer.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform.h"

namespace wm {

struct RegisteredWaitTimer::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::function<void()> callback;
    std::thread::id thread;
    bool active = false;    // a thread ticks
    bool stopping = false;  // it is to end
    std::uint32_t lastError = 0;
};

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
    if (state->active || !state->callback) {
        state->lastError = 87;  // bad argument
        return false;
    }
    try {
        std::thread thread([state, periodMs] {
            std::unique_lock tickLock(state->mutex);
            auto next = std::chrono::steady_clock::now();
            while (!state->stopping) {
                next += std::chrono::milliseconds(periodMs);
                if (state->changed.wait_until(tickLock, next, [&] { return state->stopping; }))
                    break;
                const std::function<void()> callback = state->callback;
                tickLock.unlock();
                callback();
                tickLock.lock();
            }
            state->active = false;
            state->thread = {};
            state->changed.notify_all();
        });
        state->active = true;
        state->stopping = false;
        state->thread = thread.get_id();
        thread.detach();
        return true;
    } catch (...) {
        state->lastError = platform::Win32Code(0);
        return false;
    }
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
    state->changed.wait(lock, [&] { return !state->active; });
}

std::uint32_t RegisteredWaitTimer::LastError() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->lastError;
}

}  // namespace wm
