#pragma once

#include <boost/container/static_vector.hpp>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "common/result.h"
#include "zelstore/core/eventbatch.h"

namespace ZEL {

using BatchList = std::list<std::unique_ptr<EventBatch>>;

// What a flush takes. With live mode off, small batches wait for the timer: fewer and larger writes
// spare the disk.
enum class Flush {
    fullBatches,  // the batch being filled stays
    everything,
};

// Records on their way to the disk, bounded in number and in bytes. Any number of producers and
// consumers may use a queue at the same time. Nothing in it waits for the disk: a full queue drops
// the record and says so. Destroying the queue frees what is still in it.
class IncomingQueue {
public:
    static constexpr std::uint32_t defaultCapacity = 20000;          // records
    static constexpr std::size_t mostBytes = std::size_t{64} << 20;  // of keys and values
    static constexpr std::size_t mostSpent = 4;                      // batches

    // Counted in records and rounded down to whole batches, but never below one batch.
    void SetCapacity(std::uint32_t records) EXCLUDES(lock_);

    // Adds a record to the batch being filled. `*wake` tells that the consumer has work: this
    // record no longer fitted into the batch before, or the queue is full. 0x80004005 for a full
    // queue: the record is dropped. An empty queue takes a record of any size. 0x8007000E without
    // memory: the record is dropped, too. `*wake` is to be acted upon on failure too.
    HRESULT EnqueueEventData(std::string key, std::string value, bool* wake) EXCLUDES(lock_);

    // Moves up to `most` batches, oldest first, to the end of `out`. A queue that was empty then
    // lets go of the memory of spent batches, when everything was asked for.
    void DequeueBatches(BatchList& out, Flush what, std::size_t most = SIZE_MAX) EXCLUDES(lock_);

    // Takes back the entries of a batch that was written, whose records are of no use any more.
    // Keeps a few; the rest is freed.
    void Recycle(RecordBatch spent) noexcept EXCLUDES(lock_);

    // Number of batches.
    std::size_t Size() const EXCLUDES(lock_);

private:
    using SpentBatches = boost::container::static_vector<RecordBatch, mostSpent>;

    bool IsFullLocked(const Amount& last, std::size_t bytes) const REQUIRES(lock_);
    // Empty without memory.
    BatchList MakeBatchLocked() REQUIRES(lock_);
    static void ReportFullQueue();

    mutable wm::Lock lock_{wm::LockRank::queue};
    // The last one is being filled.
    BatchList batches_ GUARDED_BY(lock_);
    SpentBatches spent_ GUARDED_BY(lock_);
    std::size_t recordLimit_ GUARDED_BY(lock_) = defaultCapacity;
    Amount aheadOfLast_ GUARDED_BY(lock_);  // in all batches but the last
    // The last batch takes nothing more: a record was refused, and the consumer makes room faster
    // when it takes that batch as it is.
    bool isLastClosed_ GUARDED_BY(lock_) = false;
};

}  // namespace ZEL
