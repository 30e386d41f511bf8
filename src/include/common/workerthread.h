#pragma once

#include <functional>
#include <memory>

#include "common/result.h"
#include "common/wmapi.h"

namespace wm {

// One thread at a time that runs a bound function to its end. The operations may be called from any
// thread. The destructor asks the thread to end and waits for it.
class WMLIB_API WorkerThread {
public:
    WorkerThread();
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // False when the system gives no thread or one is running already. An exception that leaves
    // `body` ends the thread with 0x8000FFFF.
    bool Start(std::function<ZEL::HRESULT()> body);
    bool IsRunning() const noexcept;
    // Sets a flag that the body may look at through StopRequested.
    void RequestStop() noexcept;
    bool StopRequested() const noexcept;
    // Waits without a time limit; returns at once when no thread runs, or on that thread itself.
    void Wait() noexcept;
    bool IsCurrentThread() const noexcept;
    // What the body returned last; hr::ok before the first end.
    ZEL::HRESULT ExitResult() const noexcept;

    // Kept in full here and cut to what the system allows (15 characters on Linux). May be called
    // by the thread itself.
    void SetName(const char* name);

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace wm
