#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "zel/results/eventsink.h"
#include "zel/results/spillfile.h"

namespace zel {

// Which events of an answer are handed on, and in which order. Of events with one time the one that
// came first counts as the older one.
struct EventOrder {
    std::int64_t most = -1;    // negative: all
    bool keepsNewest = false;  // of more than that; else the oldest
    bool newestFirst = false;  // with a bound that keeps the oldest it has to be false
    bool byArrival = false;    // instead of by the events' times
    bool fromNewest = false;   // of events with one time the first to come is the newest
};

// Keeps an answer and hands it on in order, at its end. In memory stand `most` events and some, or
// 64 MiB of them; what is more waits in a temporary file. `next` must outlive it.
class OrderedSink final : public EventSink {
public:
    static constexpr std::size_t memoryBytes = std::size_t{64} << 20;

    OrderedSink(EventSink& next, EventOrder order, std::size_t mostBytes = memoryBytes)
        : next_(next), order_(order), mostBytes_(mostBytes) {}

    bool MayMatter(std::string_view text) override;
    bool Take(const FoundEvent& event) override;
    bool Finish() override;
    std::string Problem() const override;

    // How many are handed on, of those that it was given.
    std::uint64_t Wanted() const noexcept {
        return order_.most < 0 ? arrivals_
                               : std::min(arrivals_, static_cast<std::uint64_t>(order_.most));
    }
    // Whether `most` leaves any out.
    bool HasMore() const noexcept {
        return order_.most >= 0 && arrivals_ > static_cast<std::uint64_t>(order_.most);
    }

private:
    struct Entry {
        std::string time;
        std::uint64_t arrival = 0;
        std::string key, host, text;
    };
    struct Span {
        std::uint64_t begin = 0, end = 0;
    };
    class Merge;

    static std::size_t SizeOf(const Entry& entry);
    static int Compare(std::string_view time, std::uint64_t arrival, const Entry& other);
    bool IsBetter(const Entry& a, const Entry& b) const;
    bool StandsFirst(const Entry& a, const Entry& b) const;
    void Prune();
    bool Spill();
    void SortEntries();

    EventSink& next_;
    const EventOrder order_;
    const std::size_t mostBytes_;
    std::vector<Entry> entries_;
    std::size_t bytes_ = 0;  // of the entries
    std::uint64_t arrivals_ = 0;
    std::string worst_;  // time of the least that is kept; empty while all are
    SpillFile file_;
    std::vector<Span> runs_;     // in it, each in order
    std::uint64_t spilled_ = 0;  // entries of all runs
};

}  // namespace zel
