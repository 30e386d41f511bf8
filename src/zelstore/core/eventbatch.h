#pragma once

#include <cstdint>
#include <string>

#include "common/lock.h"
#include "zelstore/database/izeldbimpl.h"

namespace ZEL {

// One unit of hand-over from the producers to the coordinator: up to `capacity` records under
// distinct keys. Producers add under the batch's lock; who has taken the batch out of its queue
// owns it alone.
//
// A record's memory is taken by a producer and would be freed by the coordinator. Allocators make
// both threads pay dearly for that, so a written batch goes back to its queue, and the producers
// put their next records into its entries.
class EventBatch {
public:
    static constexpr std::uint32_t capacity = 500;

    EventBatch() = default;
    // A new batch that uses the entries of a written one.
    explicit EventBatch(RecordBatch spent) noexcept : spent_(std::move(spent)) {}

    // A record with the key of one in the batch replaces that one's value.
    // What the two texts hold then is of no use; the caller frees it behind all locks.
    void Add(std::string& key, std::string& value) EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        ++added_;
        // Records mostly come in the order of their keys, and then go to the end at once.
        if (spent_.empty()) {
            records_.insert_or_assign(records_.end(), std::move(key), std::move(value));
            return;
        }
        RecordBatch::node_type entry = spent_.extract(spent_.begin());
        entry.key().swap(key);
        entry.mapped().swap(value);
        const auto place = records_.insert(records_.end(), std::move(entry));
        // Left as it was where there is a record with its key. NOLINTBEGIN(bugprone-use-after-move)
        if (entry)
            place->second.swap(entry.mapped());
        // NOLINTEND(bugprone-use-after-move)
    }
    std::size_t Size() const EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        return records_.size();
    }
    // For the sole owner of a batch that has left its queue.
    RecordBatch& Records() NO_THREAD_SAFETY_ANALYSIS { return records_; }
    // How many records came in, those included that a later one with their key replaced.
    std::uint64_t Added() const NO_THREAD_SAFETY_ANALYSIS { return added_; }

private:
    mutable wm::Lock lock_{wm::LockRank::batch};
    RecordBatch records_ GUARDED_BY(lock_);
    RecordBatch spent_ GUARDED_BY(lock_);
    std::uint64_t added_ GUARDED_BY(lock_) = 0;
};

}  // namespace ZEL
