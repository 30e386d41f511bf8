#pragma once

#include <functional>
#include <memory>

#include "common/result.h"
#include "common/wmapi.h"

namespace wm {

// One thread at a time that runs a bound function to its end. The operations may be called from any
// thread; those that are noexcept need no memory. The destructor asks the thread to end and waits
// for it.
//
// The function is told to end by whatever it waits for, an event or its queue; this class knows no
// way to interrupt it. It is destroyed with all that it holds before the thread counts as ended, so
// after Wait nothing of it is in use.
class WMLIB_API WorkerThread {
public:
    WorkerThread();
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // False when the system gives no thread or one is running already. An exception that leaves
    // `body` ends the thread with 0x8000FFFF. On false `body` will not run.
    bool Start(std::function<ZEL::HRESULT()> body);
    // A hint for all but the one who starts and waits: the thread may end at any time.
    bool IsRunning() const noexcept;
    // Sets a flag that a body which would wait for others looks at through StopRequested; each
    // Start clears it. It wakes nobody.
    void RequestStop() noexcept;
    bool StopRequested() const noexcept;
    // Waits without a time limit; returns at once when no thread runs, or on that thread itself.
    void Wait() noexcept;
    bool IsCurrentThread() const noexcept;
    // What the body returned last; hr::ok before the first end.
    ZEL::HRESULT ExitResult() const noexcept;

    // For the thread that runs, and those that are started later; cut to what the system allows (15
    // characters on Linux). `name` stays the caller's and in use for as long as the object. May be
    // called by the thread itself.
    void SetName(const char* name) noexcept;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace wm
