#include "zelstore/core/incomingqueue.h"

#include <atomic>
#include <new>

#include "common/hostservices.h"

namespace ZEL {

namespace {

// One report in this time for all queues together: a queue stays full for many records, and the
// host learns nothing from hearing of each. Counted from the start of the system, so none goes out
// in that first half hour.
constexpr std::uint64_t capacityReportPeriodMs = 1800000;
std::atomic<std::uint64_t> lastCapacityReport{0};

// The most bytes that a spent entry keeps for the next one.
constexpr std::size_t largestKept = 4096;

}  // namespace

void IncomingQueue::SetCapacity(std::uint32_t records) {
    const wm::Hold hold(lock_);
    capacity_ = records;
}

EventBatch* IncomingQueue::AppendBatchLocked() {
    try {
        RecordBatch spent;
        if (!spent_.empty()) {
            spent.swap(spent_.back());
            spent_.pop_back();
        }
        batches_.push_back(std::make_unique<EventBatch>(std::move(spent)));
        return batches_.back().get();
    } catch (const std::bad_alloc&) {
        wm::ReportError(hr::outOfMemory);
        return nullptr;
    }
}

void IncomingQueue::ReportFullQueue() {
    const std::uint64_t now = wm::Clock().TickCount64();
    if (now - lastCapacityReport.load(std::memory_order_relaxed) <= capacityReportPeriodMs)
        return;
    lastCapacityReport.store(now, std::memory_order_relaxed);
    wm::ReportError(hr::fail, "EnqueueEventData", "Failing Reason",
                    "Max capacity reached, can not add event to the queue.");
}

HRESULT IncomingQueue::EnqueueEventData(std::string key, std::string value, bool* wake) {
    const wm::Hold hold(lock_);
    *wake = false;
    EventBatch* last = batches_.empty() ? AppendBatchLocked() : batches_.back().get();
    if (last == nullptr)
        return hr::outOfMemory;
    if (last->Size() == EventBatch::capacity) {
        if (batches_.size() >= capacity_ / EventBatch::capacity) {
            ReportFullQueue();
            *wake = true;
            return hr::fail;
        }
        last = AppendBatchLocked();
        if (last == nullptr)
            return hr::outOfMemory;
        *wake = true;
    }
    try {
        last->Add(key, value);
    } catch (...) {
        if (last->Size() == 0)
            batches_.pop_back();  // an empty batch would never be written
        throw;
    }
    return hr::ok;
}

HRESULT IncomingQueue::DequeueBatches(BatchList& out, bool flushAll) {
    SpentBatches dropped;  // behind the lock
    const wm::Hold hold(lock_);
    if (flushAll && batches_.empty())
        dropped.swap(spent_);
    while (!batches_.empty()) {
        if (!flushAll && batches_.front()->Size() != EventBatch::capacity)
            break;
        out.splice(out.end(), batches_, batches_.begin());
    }
    return hr::ok;
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
