#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/lock.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/keys/keyformat.h"

namespace ZEL {

// How much some batches hold. Bytes are what the texts hold, not what the allocator takes for them.
struct Amount {
    std::size_t records = 0;
    std::size_t bytes = 0;  // of keys and values
};

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
    // A batch of large records ends earlier: the database writes it in one piece, and keeps it in
    // memory more than once meanwhile.
    static constexpr std::size_t mostBytes = std::size_t{4} << 20;

    EventBatch() = default;
    // A new batch that uses the entries of a written one. What the entries say is overwritten;
    // there is no need to clear them.
    explicit EventBatch(RecordBatch spent) noexcept : spent_(std::move(spent)) {}

    // A record with the key of one in the batch replaces that one's value. What the two texts hold
    // then is of no use; the caller frees it after all locks are released. Without memory it
    // throws: the record is then not in the batch, and those before it are.
    void Add(std::string& key, std::string& value) EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        ++added_;
        const std::size_t keyBytes = key.size(), valueBytes = value.size();
        const std::size_t before = records_.size();
        // Records mostly come in the order of their keys, events and receive-time rows each by
        // itself, and then their places are known without a search.
        const bool isReceipt = !key.empty() && key.front() == receivePrefix;
        const auto hint = isReceipt ? records_.end() : firstReceipt_;
        RecordBatch::iterator place;
        if (spent_.empty()) {
            place = records_.try_emplace(hint, std::move(key));
            place->second.swap(value);
        } else {
            RecordBatch::node_type entry = spent_.extract(spent_.begin());
            entry.key().swap(key);
            entry.mapped().swap(value);
            place = records_.insert(hint, std::move(entry));
            // Left as it was where there is a record with its key.
            if (entry) {  // NOLINT(bugprone-use-after-move)
                place->second.swap(entry.mapped());
                value.swap(entry.mapped());
            }
        }
        if (isReceipt && (firstReceipt_ == records_.end() || place->first < firstReceipt_->first))
            firstReceipt_ = place;
        // What was replaced stands in `value` now.
        bytes_ += valueBytes + (records_.size() != before ? keyBytes : -value.size());
    }
    // Records under distinct keys, which is what the batch has room for.
    Amount Held() const EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        return {records_.size(), bytes_};
    }
    std::size_t Size() const EXCLUDES(lock_) { return Held().records; }
    // For the sole owner of a batch that has left its queue.
    RecordBatch& Records() NO_THREAD_SAFETY_ANALYSIS { return records_; }
    // How many records came in, those included that a later one with their key replaced.
    std::uint64_t Added() const NO_THREAD_SAFETY_ANALYSIS { return added_; }

private:
    mutable wm::Lock lock_{wm::LockRank::batch};
    RecordBatch records_ GUARDED_BY(lock_);
    // The first receive-time row, ahead of which events end; the end while there is none.
    RecordBatch::iterator firstReceipt_ GUARDED_BY(lock_) = records_.end();
    // Entries without a record; used up one by one.
    RecordBatch spent_ GUARDED_BY(lock_);
    std::size_t bytes_ GUARDED_BY(lock_) = 0;
    std::uint64_t added_ GUARDED_BY(lock_) = 0;
};

}  // namespace ZEL
