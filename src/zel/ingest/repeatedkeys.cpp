#include "zel/ingest/repeatedkeys.h"

#include <functional>
#include <utility>

// Two tables of hashes with open addressing. Keys go into the recent one; when it holds its share
// it becomes the older one, and what that was is forgotten. A key is looked for in both. Two texts
// with one hash of 64 bits would be taken for one key: of three million keys, once in four million
// runs.

namespace zel {

namespace {

constexpr std::size_t firstSize = 1024;

// Never 0, which marks a free place and a record that is not known.
std::uint64_t Hash(std::string_view text) noexcept {
    const std::uint64_t hash = std::hash<std::string_view>()(text);
    return hash != 0 ? hash : 1;
}

}  // namespace

RepeatedKeys::Entry& RepeatedKeys::PlaceOf(std::vector<Entry>& table, std::uint64_t key) noexcept {
    std::size_t at = key & (table.size() - 1);
    while (table[at].key != 0 && table[at].key != key)
        at = (at + 1) & (table.size() - 1);
    return table[at];
}

// A key that only the older table has moves into the recent one, so what comes again and again is
// never forgotten.
RepeatedKeys::Repeat RepeatedKeys::Add(std::string_view key, std::string_view record) {
    MakeRoom();
    const std::uint64_t hash = Hash(key);
    Entry& place = PlaceOf(recent_, hash);
    std::uint64_t former = place.record;
    if (place.key == 0) {
        ++recentCount_;
        former = older_.empty() ? 0 : PlaceOf(older_, hash).record;
    }
    place = {hash, Hash(record)};
    if (former == 0)
        return Repeat::none;
    return former == place.record ? Repeat::same : Repeat::other;
}

// For one more key in the recent table.
void RepeatedKeys::MakeRoom() {
    if (recentCount_ == kept_) {
        complete_ = complete_ && older_.empty();
        older_ = std::exchange(recent_, {});
        recentCount_ = 0;
    }
    if (recentCount_ * 4 < recent_.size() * 3)
        return;
    std::vector<Entry> larger(recent_.empty() ? firstSize : recent_.size() * 2);
    for (const Entry& entry : recent_)
        if (entry.key != 0)
            PlaceOf(larger, entry.key) = entry;
    recent_ = std::move(larger);
}

}  // namespace zel
