#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/result.h"
#include "connection/fleetuse.h"
#include "sql/sqlstore.h"

namespace zel {

// The store's answer to a document, taken event by event. The store pushes, SQLite pulls: the
// question runs on a thread of its own, which waits while a mebibyte of events is not yet taken.
// An event comes once, however often it is stored. For one thread.
class EventWalk {
public:
    struct Question {
        std::string document;  // as IEventStore::Query takes it
        // Of a fleet alone.
        IFleetCallback::Order order = {};
        std::string host;  // that alone is asked; empty: all
    };
    // Begins to ask. Throws when there is no thread or memory.
    EventWalk(std::shared_ptr<SqlStore> store, Question question);
    // Ends the question if it still runs, and waits for that: a second at most.
    ~EventWalk();
    EventWalk(const EventWalk&) = delete;
    EventWalk& operator=(const EventWalk&) = delete;

    enum class Step {
        event,
        notYet,  // none has come for a while: ask again
        end,     // no more; Result tells whether all was walked
    };
    struct Event {
        std::string_view text;       // UTF-8
        std::string_view key, host;  // of a fleet's event; else empty
    };
    // `*event` is good until the next call.
    Step Next(Event* event);
    // Of the question as a whole, once it has ended.
    ZEL::HRESULT Result() const noexcept;

    // What of an event's text tells it from others: what stands behind the last brace is no part of
    // it.
    static std::string_view DistinctPart(std::string_view event) noexcept {
        return event.substr(0, event.rfind('}'));
    }

private:
    class Runner;
    const std::unique_ptr<Runner> runner_;
};

}  // namespace zel
