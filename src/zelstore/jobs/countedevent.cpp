#include "zelstore/jobs/countedevent.h"

#include <thread>
#include <utility>

#include "common/trace.h"

// The event wakes; the count decides. Who is woken and finds that the setting was none of theirs,
// or that others are owed one too, sets the event again for the others. A reset does the same, so
// that it takes away only settings that nobody is owed. While somebody is owed one, all others stay
// away from the event: two of them could take it from each other for ever.

namespace ZEL {

// Stands in the list of waiters while it lives. Both ends are under the lock. The list runs through
// the waiters themselves, so that a wait needs no memory.
class CountedEvent::Registration {
public:
    Registration(CountedEvent& event, std::uint64_t known) : event_(event), known_(known) {
        const wm::Hold hold(event_.lock_);
        next_ = std::exchange(event_.waiters_, this);
    }
    ~Registration() {
        const wm::Hold hold(event_.lock_);
        Registration** place = &event_.waiters_;
        // Found without fail: only this destructor takes the waiter out, and the list is as short
        // as there are threads that wait for one job.
        while (*place != this)
            place = &(*place)->next_;
        *place = next_;
        event_.PassOnLocked();
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    enum class Step { leave, giveWay, wait };
    // What is to be done next. Who may have taken the event puts it back for those who are owed it.
    Step Look(bool mayHaveTaken) {
        const wm::Hold hold(event_.lock_);
        if (event_.count_ != known_)
            return Step::leave;
        if (!event_.IsOwedLocked())
            return Step::wait;
        if (mayHaveTaken)
            event_.event_.Set();
        return Step::giveWay;
    }

    // For who holds the event's lock.
    std::uint64_t Known() const noexcept { return known_; }
    const Registration* Next() const noexcept { return next_; }

private:
    CountedEvent& event_;
    const std::uint64_t known_;
    Registration* next_ = nullptr;
};

bool CountedEvent::Create() {
    const wm::Hold hold(lock_);
    return event_.Create(wm::EventReset::automatic);
}

bool CountedEvent::Set() {
    const wm::Hold hold(lock_);
    // Ahead of the setting: who is woken by it must find it counted.
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

bool CountedEvent::IsOwedLocked() const {
    for (const Registration* waiter = waiters_; waiter != nullptr; waiter = waiter->Next())
        if (waiter->Known() != count_)
            return true;
    return false;
}

void CountedEvent::PassOnLocked() {
    if (IsOwedLocked())
        event_.Set();
}

HRESULT CountedEvent::WaitBehind(std::uint64_t known, HANDLE cancel) {
    const HANDLE handles[] = {event_.Handle(), cancel};
    // A null handle would make the wait fail.
    const std::size_t count = cancel != nullptr ? 2 : 1;
    Registration waiter(*this, known);
    for (bool mayHaveTaken = true;;) {
        const Registration::Step step = waiter.Look(mayHaveTaken);
        if (step == Registration::Step::leave)
            return hr::ok;
        mayHaveTaken = step == Registration::Step::wait;
        if (!mayHaveTaken) {
            std::this_thread::yield();
            continue;
        }
        const std::uint32_t woken = wm::WaitForAny(count, handles, wm::waitForever);
        // The only wait whose cause needs no look at the count.
        if (woken == 1)
            return hr::ok;
        if (woken != 0) {
            wm::Trace(wm::message::jobWaitFailed, hr::fail);
            return hr::fail;
        }
    }
}

}  // namespace ZEL
