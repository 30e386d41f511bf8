#pragma once

#include <map>
#include <string>

#include "agent/web/countkey.h"
#include "zelstore/ieventstore.h"

namespace zel {

// An event as a list keeps it until it is written.
struct ListedEvent {
    std::string key, text, enrichments;
};
using ListedEvents = std::map<EventPlace, ListedEvent>;

// Keeps the events nearest to one end of the order, at most 64 MiB of them. For one thread.
class BestRows {
public:
    BestRows(std::size_t most, bool newest) : most_(most), newest_(newest) {}

    // Whether an event at that time, or further from the end, can't be among them.
    bool IsBeyond(std::int64_t time, std::uint64_t sequence) const;
    void Add(const EventPlace& place, const ZEL::QueryRow& row);
    // Takes what another has found.
    void Join(BestRows&& other);

    std::size_t Count() const noexcept { return rows_.size(); }
    // Whether more were wanted than may be kept.
    bool IsCut() const noexcept { return isCut_; }
    // Milliseconds from the first to the last.
    std::int64_t Length() const;
    ListedEvents Take() { return std::move(rows_); }

private:
    ListedEvents::const_iterator Worst() const {
        return newest_ ? rows_.begin() : std::prev(rows_.end());
    }
    bool Wants(const EventPlace& place) const;
    void Keep(const EventPlace& place, ListedEvent&& event);

    std::size_t most_;
    const bool newest_;
    ListedEvents rows_;
    std::size_t bytes_ = 0;
    bool isCut_ = false;
};

}  // namespace zel
