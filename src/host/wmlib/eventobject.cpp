#include "common/eventobject.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

// One lock guards all events, and each wait brings a condition of its own that it enters with every
// event it waits for. Who sets an event wakes those waiters; a waiter takes the setting under the
// lock, so that of two waiters exactly one gets an auto-reset event, and a setting that nobody
// takes stays. The lock is held for a few instructions only and nothing else is taken under it.

namespace wm {

namespace {

struct Waiter {
    std::condition_variable wake;
};

struct Event {
    bool manualReset = false;
    bool set = false;
    std::vector<Waiter*> waiters;
};

struct Table {
    std::mutex mutex;
    // Handles are numbers that are never given out twice, so that a stale one can't reach an event
    // that was made later. A waiter keeps its events alive.
    std::unordered_map<ZEL::HANDLE, std::shared_ptr<Event>> open;
    std::uintptr_t lastHandle = 0;
};

Table& Events() {
    // Never destroyed: threads of the host may wait until the very end of the process.
    static Table* const table = new Table;
    return *table;
}

using EventList = std::vector<std::shared_ptr<Event>>;

// The events behind the handles; empty when one of them names none.
EventList Find(const Table& table, std::size_t count, const ZEL::HANDLE* handles) {
    EventList events;
    events.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto found = table.open.find(handles[i]);
        if (found == table.open.end())
            return {};
        events.push_back(found->second);
    }
    return events;
}

std::uint32_t TakeFirstSet(const EventList& events) {
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (!events[i]->set)
            continue;
        if (!events[i]->manualReset)
            events[i]->set = false;
        return static_cast<std::uint32_t>(i);
    }
    return waitTimedOut;
}

// Stands in the waiting lists of the events while it lives. Made and destroyed under the lock.
class Registration {
public:
    // Throws before anything is entered, or not at all.
    Registration(const EventList& events, Waiter* waiter) : events_(events), waiter_(waiter) {
        for (const auto& event : events_)
            event->waiters.reserve(event->waiters.size() + events_.size());
        for (const auto& event : events_)
            event->waiters.push_back(waiter_);
    }
    ~Registration() {
        for (const auto& event : events_)
            std::erase(event->waiters, waiter_);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    const EventList& events_;
    Waiter* const waiter_;
};

std::uint32_t WaitRegistered(std::unique_lock<std::mutex>& lock, const EventList& events,
                             std::uint32_t timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    Waiter waiter;
    const Registration registration(events, &waiter);
    for (;;) {
        std::cv_status status = std::cv_status::no_timeout;
        if (timeoutMs == waitForever)
            waiter.wake.wait(lock);
        else
            status = waiter.wake.wait_until(lock, deadline);
        const std::uint32_t result = TakeFirstSet(events);
        if (result != waitTimedOut || status == std::cv_status::timeout)
            return result;
    }
}

bool SetState(ZEL::HANDLE handle, bool set) noexcept {
    Table& table = Events();
    const std::lock_guard lock(table.mutex);
    const auto found = table.open.find(handle);
    if (found == table.open.end())
        return false;
    found->second->set = set;
    if (set)
        for (Waiter* waiter : found->second->waiters)
            waiter->wake.notify_one();
    return true;
}

}  // namespace

std::uint32_t WaitForAny(std::size_t count, const ZEL::HANDLE* handles,
                         std::uint32_t timeoutMs) noexcept {
    if (count == 0 || count > mostWaitHandles || handles == nullptr)
        return waitFailed;
    try {
        Table& table = Events();
        EventList events;  // outlives the lock: it may be the last owner of a closed event
        std::unique_lock lock(table.mutex);
        events = Find(table, count, handles);
        if (events.empty())
            return waitFailed;
        const std::uint32_t first = TakeFirstSet(events);
        if (first != waitTimedOut || timeoutMs == 0)
            return first;
        return WaitRegistered(lock, events, timeoutMs);
    } catch (...) {
        return waitFailed;
    }
}

bool EventObject::Create(bool manualReset, bool initiallySet) noexcept {
    Close();
    try {
        auto event = std::make_shared<Event>();
        event->manualReset = manualReset;
        event->set = initiallySet;
        Table& table = Events();
        const std::lock_guard lock(table.mutex);
        const auto handle = reinterpret_cast<ZEL::HANDLE>(++table.lastHandle);
        table.open.emplace(handle, std::move(event));
        handle_.store(handle, std::memory_order_release);
        return true;
    } catch (...) {
        return false;
    }
}

void EventObject::Close() noexcept {
    const ZEL::HANDLE handle = handle_.exchange(nullptr, std::memory_order_acq_rel);
    if (handle == nullptr)
        return;
    std::shared_ptr<Event> last;
    Table& table = Events();
    const std::lock_guard lock(table.mutex);
    const auto found = table.open.find(handle);
    if (found != table.open.end()) {
        last = std::move(found->second);
        table.open.erase(found);
    }
}

bool EventObject::Set() noexcept {
    return SetState(Handle(), true);
}

bool EventObject::Reset() noexcept {
    return SetState(Handle(), false);
}

bool SetEventHandle(ZEL::HANDLE handle) noexcept {
    return SetState(handle, true);
}

}  // namespace wm
