#include "common/workerthread.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform.h"

// A thread that can be started again and waited for by several. It is detached: waiting goes by a
// condition and not by joining, which only one thread may do and never the thread itself. The end
// is told under the lock, as the last thing that the thread does with the state, and the state is
// shared, so that it does not matter whether the object or the thread goes first.

namespace wm {

// Shared with the thread, which may outlive the object when the object is destroyed by its own
// thread.
struct WorkerThread::State {
    mutable std::mutex mutex;
    std::condition_variable ended;
    bool running = false;
    std::uint64_t runs = 0;  // tells a waiter for one run from the next
    bool stopRequested = false;
    std::thread::id id;
    std::thread::native_handle_type handle{};  // valid while `running`
    ZEL::HRESULT exitResult = ZEL::hr::ok;
    const char* name = nullptr;
};

WorkerThread::WorkerThread() : state_(std::make_shared<State>()) {}

WorkerThread::~WorkerThread() {
    RequestStop();
    Wait();
}

bool WorkerThread::Start(std::function<ZEL::HRESULT()> body) {
    const std::shared_ptr<State> state = state_;
    const std::lock_guard lock(state->mutex);
    if (state->running)
        return false;
    state->stopRequested = false;
    try {
        // The lock is held until the thread's number and handle are stored; a body that ends at
        // once waits for it before it tells.
        std::thread thread([state, body = std::move(body)]() mutable {
            ZEL::HRESULT result = ZEL::hr::unexpected;
            try {
                result = body();
            } catch (...) {
                result = ZEL::hr::unexpected;
            }
            body = nullptr;  // frees what it holds before the end is told
            const std::lock_guard endLock(state->mutex);
            state->exitResult = result;
            state->running = false;
            state->id = {};
            state->ended.notify_all();
        });
        state->running = true;
        state->id = thread.get_id();
        state->handle = thread.native_handle();
        ++state->runs;
        if (state->name != nullptr)
            platform::NameThread(state->handle, state->name);
        thread.detach();
        return true;
    } catch (...) {
        return false;
    }
}

bool WorkerThread::IsRunning() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->running;
}

void WorkerThread::RequestStop() noexcept {
    const std::lock_guard lock(state_->mutex);
    state_->stopRequested = true;
}

bool WorkerThread::StopRequested() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->stopRequested;
}

void WorkerThread::Wait() noexcept {
    const std::shared_ptr<State> state = state_;
    std::unique_lock lock(state->mutex);
    // Waiting for oneself would never end.
    if (state->id == std::this_thread::get_id())
        return;
    const std::uint64_t run = state->runs;
    state->ended.wait(lock, [&] { return !state->running || state->runs != run; });
}

bool WorkerThread::IsCurrentThread() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->running && state_->id == std::this_thread::get_id();
}

ZEL::HRESULT WorkerThread::ExitResult() const noexcept {
    const std::lock_guard lock(state_->mutex);
    return state_->exitResult;
}

void WorkerThread::SetName(const char* name) noexcept {
    const std::lock_guard lock(state_->mutex);
    state_->name = name;
    if (state_->running)
        platform::NameThread(state_->handle, name);
}

}  // namespace wm
