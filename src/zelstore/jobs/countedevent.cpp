#include "zelstore/jobs/countedevent.h"

#include <algorithm>
#include <thread>

#include "common/trace.h"

// The event wakes; the count decides. Who is woken and finds that the setting was none of theirs,
// or that others are owed one too, sets the event again for the others. A reset does the same, so
// that it takes away only settings that nobody is owed.

namespace ZEL {

// Stands in the list of waiters while it lives. Both ends are under the lock.
class CountedEvent::Registration {
public:
    Registration(CountedEvent& event, std::uint64_t known) : event_(event), known_(known) {
        const wm::Hold hold(event_.lock_);
        event_.waiters_.push_back(known_);
    }
    ~Registration() {
        const wm::Hold hold(event_.lock_);
        const auto mine = std::find(event_.waiters_.begin(), event_.waiters_.end(), known_);
        event_.waiters_.erase(mine);
        event_.PassOnLocked();
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    // Whether the wait is over. If not, and another waiter's is, that one is woken.
    bool IsOver() {
        const wm::Hold hold(event_.lock_);
        if (event_.count_ != known_)
            return true;
        event_.PassOnLocked();
        return false;
    }

private:
    CountedEvent& event_;
    const std::uint64_t known_;
};

bool CountedEvent::Create() {
    const wm::Hold hold(lock_);
    return event_.Create(false, false);
}

bool CountedEvent::Set() {
    const wm::Hold hold(lock_);
    ++count_;
    return event_.Set();
}

bool CountedEvent::Reset() {
    const wm::Hold hold(lock_);
    if (!event_.Reset())
        return false;
    PassOnLocked();
    return true;
}

std::uint64_t CountedEvent::Count() const {
    const wm::Hold hold(lock_);
    return count_;
}

void CountedEvent::PassOnLocked() {
    if (std::any_of(waiters_.begin(), waiters_.end(),
                    [this](std::uint64_t known) REQUIRES(lock_) { return known != count_; }))
        event_.Set();
}

HRESULT CountedEvent::WaitBehind(std::uint64_t known, HANDLE cancel) {
    const HANDLE handles[] = {event_.Handle(), cancel};
    const std::size_t count = cancel != nullptr ? 2 : 1;
    Registration waiter(*this, known);
    while (!waiter.IsOver()) {
        const std::uint32_t woken = wm::WaitForAny(count, handles, wm::waitForever);
        if (woken == 1)
            return hr::ok;
        if (woken != 0) {
            wm::Trace(wm::TraceLevel::error, "a wait for a job failed", hr::fail);
            return hr::fail;
        }
        // A setting that was another waiter's goes back; that one must get at it.
        std::this_thread::yield();
    }
    return hr::ok;
}

}  // namespace ZEL
