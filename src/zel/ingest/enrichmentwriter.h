#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "connection/storesession.h"

namespace zel {

// Stores enrichments under the keys of their events, in a session that is open for writing. What it
// can't store is counted, and told once. For one thread.
class EnrichmentWriter {
public:
    // Live ones make `query --no-live-enriched` leave the event out, silent ones don't.
    EnrichmentWriter(StoreSession& store, bool live) : store_(store), live_(live) {}

    // `enrichment` is one good JSON value. False when no more is to be added: the store takes none,
    // which is told, or the program was interrupted while the store had no room.
    bool Add(const std::string& eventKey, std::string_view enrichment);

    std::uint64_t Taken() const noexcept { return taken_; }
    std::uint64_t Refused() const noexcept { return refused_; }

private:
    std::string MakeKey(const std::string& eventKey);

    StoreSession& store_;
    const bool live_;
    std::int64_t lastNumber_ = 0;  // microseconds since 1970
    std::uint64_t taken_ = 0;
    std::uint64_t refused_ = 0;
};

}  // namespace zel
