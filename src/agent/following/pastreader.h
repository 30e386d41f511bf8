#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "common/eventobject.h"
#include "zelstore/ieventstore.h"

namespace zel {

// What the owner of the spool knows of the rows that the store holds. Any thread.
class IFollowPast {
public:
    // The last row ahead of which, it included, all are in the store and on the disk; empty for
    // none.
    virtual std::string Settled() = 0;
    // How many records, at most, were there from that place on and went with a purge.
    virtual std::uint64_t PurgedFrom(std::string_view place) = 0;
    // Held while folders are deleted and the two above don't agree with what is there.
    virtual std::mutex& Purging() = 0;

protected:
    ~IFollowPast() = default;
};

// Reads accepted records back from the store, in the order of their acceptance, a bounded step at a
// time. For one thread, but for End.
class PastReader {
public:
    // Both outlive this. A step has at most so many rows.
    PastReader(ZEL::IEventStore7& store, IFollowPast& past, int rowsOfStep = 500);

    struct Row {
        std::string_view receiveKey;
        ZEL::IStringValue* key = nullptr;  // of the event
        std::string_view record;           // as it was accepted
    };
    struct Step {
        std::string unread;    // the folder that could not be read, where the step ends for now
        std::string end;       // the place that it came to
        bool isWhole = false;  // no row is left up to what is settled
    };
    // Gives rows from `place` on, as long as `onRow` takes them; `onGap` comes ahead of a row that
    // has purged ones before it. With `passesOver` folders that can't be read are passed over.
    Step Read(const std::string& place, bool passesOver,
              const std::function<void(std::uint64_t purged, std::string_view place)>& onGap,
              const std::function<bool(const Row& row)>& onRow);
    // Makes the step in hand end soon. Any thread.
    void End() noexcept { stop_.Set(); }

private:
    class Walk;

    ZEL::IEventStore7& store_;
    IFollowPast& past_;
    const int rowsOfStep_;
    wm::EventObject stop_;
};

}  // namespace zel
