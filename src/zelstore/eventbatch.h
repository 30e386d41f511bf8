#pragma once

#include <cstdint>
#include <string>

#include "common/lock.h"
#include "zelstore/database/izeldbimpl.h"

namespace ZEL {

// One unit of hand-over from the producers to the coordinator: up to `capacity` records under
// distinct keys. Producers add under the batch's lock; who has taken the batch out of its queue
// owns it alone.
class EventBatch {
public:
    static constexpr std::uint32_t capacity = 500;

    // A record with the key of one in the batch replaces that one's value.
    void Add(std::string key, std::string value) EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        records_.insert_or_assign(std::move(key), std::move(value));
    }
    std::size_t Size() const EXCLUDES(lock_) {
        const wm::Hold hold(lock_);
        return records_.size();
    }
    // For the sole owner of a batch that has left its queue.
    RecordBatch& Records() NO_THREAD_SAFETY_ANALYSIS { return records_; }

private:
    mutable wm::Lock lock_{wm::LockRank::batch};
    RecordBatch records_ GUARDED_BY(lock_);
};

}  // namespace ZEL
