#include "zelstore/core/incomingqueue.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>

#include "common/hostservices.h"

// The hand-over of records to the coordinator. Producers fill one batch, the last; those ahead of
// it take nothing more and wait for the coordinator, which takes a few at a time. A batch is
// announced by the first record that no longer fits into it, so producers ask for a wake-up once in
// 500 records, or once in 4 MiB.
//
// What waits is bounded in records, for small ones, and in bytes, for large ones. What the
// coordinator has taken is not counted here.

namespace ZEL {

namespace {

// One report in this time for all queues together: a queue stays full for many records, and the
// host learns nothing from hearing of each. Counted from the start of the system, so none goes out
// in that first half hour.
constexpr std::uint64_t capacityReportPeriodMs = 1800000;
std::atomic<std::uint64_t> lastCapacityReport{0};

// The most bytes that a spent entry keeps for the next one.
constexpr std::size_t largestKept = 4096;

// Whether a batch that holds `held` takes `bytes` more. An empty one takes any record.
bool HasRoomFor(const Amount& held, std::size_t bytes) {
    return held.records < EventBatch::capacity &&
           (held.records == 0 || held.bytes + bytes <= EventBatch::mostBytes);
}

}  // namespace

void IncomingQueue::SetCapacity(std::uint32_t records) {
    const std::size_t batches = std::max<std::size_t>(records / EventBatch::capacity, 1);
    const wm::Hold hold(lock_);
    recordLimit_ = batches * EventBatch::capacity;
}

// A list of one, so that entering it needs no memory and can't fail half-way.
BatchList IncomingQueue::MakeBatchLocked() {
    BatchList made;
    try {
        RecordBatch spent;
        if (!spent_.empty()) {
            spent.swap(spent_.back());
            spent_.pop_back();
        }
        made.push_back(std::make_unique<EventBatch>(std::move(spent)));
    } catch (const std::bad_alloc&) {
        wm::ReportError(hr::outOfMemory);
    }
    return made;
}

void IncomingQueue::ReportFullQueue() {
    const std::uint64_t now = wm::Clock().TickCount64();
    if (now - lastCapacityReport.load(std::memory_order_relaxed) <= capacityReportPeriodMs)
        return;
    lastCapacityReport.store(now, std::memory_order_relaxed);
    wm::ReportError(hr::fail, "EnqueueEventData", "Failing Reason",
                    "Max capacity reached, can not add event to the queue.");
}

bool IncomingQueue::IsFullLocked(const Amount& last, std::size_t bytes) const {
    const std::size_t records = aheadOfLast_.records + last.records;
    return records >= recordLimit_ ||
           (records != 0 && aheadOfLast_.bytes + last.bytes + bytes > mostBytes);
}

HRESULT IncomingQueue::EnqueueEventData(std::string key, std::string value, bool* wake) {
    const std::size_t bytes = key.size() + value.size();
    const wm::Hold hold(lock_);
    EventBatch* const last = batches_.empty() ? nullptr : batches_.back().get();
    const Amount held = last != nullptr ? last->Held() : Amount{};
    *wake = false;
    if (IsFullLocked(held, bytes)) {
        // The batch goes as it is, with the next wake-up: waiting for it to fill would wait for
        // producers that are being refused.
        isLastClosed_ = true;
        ReportFullQueue();
        *wake = true;
        return hr::fail;
    }
    if (last != nullptr && !isLastClosed_ && HasRoomFor(held, bytes)) {
        last->Add(key, value);
        return hr::ok;
    }
    BatchList next = MakeBatchLocked();
    if (next.empty())
        return hr::outOfMemory;
    next.front()->Add(key, value);
    batches_.splice(batches_.end(), next);
    aheadOfLast_.records += held.records;
    aheadOfLast_.bytes += held.bytes;
    isLastClosed_ = false;
    *wake = last != nullptr;
    return hr::ok;
}

// Batches change hands by their list nodes: nothing is copied and nothing can fail.
void IncomingQueue::DequeueBatches(BatchList& out, Flush what, std::size_t most) {
    SpentBatches dropped;  // freed after the lock is released
    const wm::Hold hold(lock_);
    if (batches_.empty()) {
        if (what == Flush::everything)
            dropped.swap(spent_);
        return;
    }
    const bool takesLast = what == Flush::everything || isLastClosed_ ||
                           batches_.back()->Size() == EventBatch::capacity;
    for (; most > 0 && batches_.size() > 1; --most) {
        const Amount held = batches_.front()->Held();
        aheadOfLast_.records -= held.records;
        aheadOfLast_.bytes -= held.bytes;
        out.splice(out.end(), batches_, batches_.begin());
    }
    if (most > 0 && takesLast) {
        out.splice(out.end(), batches_);
        isLastClosed_ = false;
    }
}

void IncomingQueue::Recycle(RecordBatch spent) noexcept {
    // Large records are rare, and must not hold their memory on.
    std::erase_if(spent, [](const auto& entry) {
        return entry.first.capacity() + entry.second.capacity() > largestKept;
    });
    const wm::Hold hold(lock_);
    if (spent_.size() < mostSpent)
        spent_.push_back(std::move(spent));
}

std::size_t IncomingQueue::Size() const {
    const wm::Hold hold(lock_);
    return batches_.size();
}

}  // namespace ZEL
