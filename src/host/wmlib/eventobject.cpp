#include "common/eventobject.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "common/neverdestroyed.h"

// One lock guards all events, and each wait brings a condition of its own that it enters with every
// event it waits for. Who sets an event wakes those waiters; a waiter takes the setting under the
// lock, so that of two waiters exactly one gets an auto-reset event, and a setting that nobody
// takes stays. The lock is held for a few instructions only and nothing else is taken under it.
//
// A wait allocates nothing: threads that must go on when memory runs out sleep here.

namespace wm {

namespace {

struct Waiter {
    std::condition_variable wake;
};

// A waiter's entry in the list of one event; lives in the waiter's own frame.
struct Entry {
    Waiter* waiter = nullptr;
    Entry* previous = nullptr;
    Entry* next = nullptr;
};

struct Event {
    bool manualReset = false;
    bool set = false;
    Entry* first = nullptr;

    void Enter(Entry* entry) noexcept {
        entry->next = first;
        if (first != nullptr)
            first->previous = entry;
        first = entry;
    }
    void Leave(Entry* entry) noexcept {
        (entry->previous != nullptr ? entry->previous->next : first) = entry->next;
        if (entry->next != nullptr)
            entry->next->previous = entry->previous;
    }
};

struct Table {
    std::mutex mutex;
    // Handles are numbers that are never given out twice, so that a stale one can't reach an event
    // that was made later. A waiter keeps its events alive.
    std::unordered_map<ZEL::HANDLE, std::shared_ptr<Event>> open;
    std::uintptr_t lastHandle = 0;
};

Table& Events() {
    static NeverDestroyed<Table> table;
    return *table;
}

// The events of one wait, kept alive by it.
struct EventList {
    std::array<std::shared_ptr<Event>, mostWaitHandles> events;
    std::size_t count = 0;
};

// False when one of the handles names no event.
bool Find(const Table& table, std::size_t count, const ZEL::HANDLE* handles, EventList* list) {
    for (; list->count < count; ++list->count) {
        const auto found = table.open.find(handles[list->count]);
        if (found == table.open.end())
            return false;
        list->events[list->count] = found->second;
    }
    return true;
}

std::uint32_t TakeFirstSet(const EventList& list) {
    for (std::size_t i = 0; i < list.count; ++i) {
        Event& event = *list.events[i];
        if (!event.set)
            continue;
        if (!event.manualReset)
            event.set = false;
        return static_cast<std::uint32_t>(i);
    }
    return waitTimedOut;
}

// Stands in the waiting lists of the events while it lives. Made and destroyed under the lock.
class Registration {
public:
    Registration(const EventList& list, Waiter* waiter) noexcept : list_(list) {
        for (std::size_t i = 0; i < list_.count; ++i) {
            entries_[i].waiter = waiter;
            list_.events[i]->Enter(&entries_[i]);
        }
    }
    ~Registration() {
        for (std::size_t i = 0; i < list_.count; ++i)
            list_.events[i]->Leave(&entries_[i]);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    const EventList& list_;
    std::array<Entry, mostWaitHandles> entries_;
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
        for (const Entry* entry = found->second->first; entry != nullptr; entry = entry->next)
            entry->waiter->wake.notify_one();
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
        if (!Find(table, count, handles, &events))
            return waitFailed;
        const std::uint32_t first = TakeFirstSet(events);
        if (first != waitTimedOut || timeoutMs == 0)
            return first;
        return WaitRegistered(lock, events, timeoutMs);
    } catch (...) {
        return waitFailed;
    }
}

bool EventObject::Create(EventReset reset, EventState initially) noexcept {
    Close();
    try {
        auto event = std::make_shared<Event>();
        event->manualReset = reset == EventReset::manual;
        event->set = initially == EventState::set;
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
