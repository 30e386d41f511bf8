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
//
// A wait over several events looks at them and enters their lists under the same lock under which
// they are set. So a setting is either seen by the look or finds the waiter in the list: there is
// no moment between the two for it to be lost in. The waiter has one condition for all of its
// events, is woken by whichever is set first, and looks at all of them again in the order of their
// indices, since another waiter may have taken the setting meanwhile and a lower index may have
// been set as well. Waking is only a hint to look; the state of the events alone decides.
//
// Setting an auto-reset event wakes all of its waiters though only one can take it. Waking one
// would be cheaper and wrong: the one that is chosen may end its wait by another of its events, and
// the setting would stay while somebody sleeps who wanted it. There are few waiters to an event.
//
// A wait whose time runs out looks once more before it says so: a setting that came with the last
// moment is taken rather than left.

namespace wm {

namespace {

// One for each wait, in its own frame: it is gone from all lists before the frame is.
struct Waiter {
    std::condition_variable wake;
};

// A waiter's entry in the list of one event; lives in the waiter's own frame. Doubly linked, so
// that leaving takes the same few instructions however many wait.
struct Entry {
    Waiter* waiter = nullptr;
    Entry* previous = nullptr;
    Entry* next = nullptr;
};

struct Event {
    bool manualReset = false;
    bool set = false;
    Entry* first = nullptr;

    // At the front; the order of a list means nothing.
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

// Threads of the host may wait while the process ends.
Table& Events() {
    static NeverDestroyed<Table> table;
    return *table;
}

// The events of one wait, kept alive by it. An array of the greatest size stands in the frame:
// about a kilobyte for a wait that needs no memory.
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

// waitTimedOut when none is set, which for a wait in progress means to go on.
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

// Called when nothing is set. The deadline is worked out once, so that being woken in vain does not
// lengthen the wait.
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

// The waiters are told under the lock: once it is released one may leave, and its frame with it,
// before its turn has come.
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
        // If the table has no room for it the number is lost, which harms nobody.
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
    // Declared ahead of the lock, so that the event is freed after its release. Closing wakes
    // nobody: who waits for a closed event alone waits until his time runs out.
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
