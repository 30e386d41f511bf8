#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/boundary.h"
#include "common/filesystem.h"
#include "common/hostservices.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/keys/keyformat.h"

// The coordinator: the thread of the store core that moves records from the two queues to the
// database. It sleeps on four events, whose order is their priority, and looks at the live mode at
// least every ten seconds. With live mode off only full batches and the tick of the flush timer
// make it write; with live mode on each wake-up drains everything.
//
// It does not flush on its way out: Stop waits for its end and then writes what is left on its own
// thread. So one thread at a time writes, and records reach the disk in the order in which they
// were accepted.

namespace ZEL {

namespace {

constexpr std::uint32_t waitStop = 0;
constexpr std::uint32_t waitTimer = 1;
constexpr std::size_t waitCount = 4;

// The table of errors counts failures; a host that has to account for its records needs their
// number. Of enrichments the database alone knows it.
void ReportLostEvents(HRESULT result, std::uint64_t added, const RecordBatch& records) {
    const auto report = [&] {
        const auto receipts = static_cast<std::uint64_t>(std::count_if(
            records.begin(), records.end(),
            [](const auto& record) { return record.first.starts_with(receivePrefix); }));
        wm::ErrorReport lost;
        lost.SetError(result, wm::reportLabel::lostBatch)
            .AddDetail(wm::lostDetail::events, std::to_string(added - receipts))
            .AddDetail(wm::lostDetail::receipts, std::to_string(receipts))
            .Submit();
        return hr::ok;
    };
    IgnoreResult(AtBoundary(report), "a report never changes a result");
}

}  // namespace

HRESULT EventStoreImpl::StartCoordinator() {
    for (wm::EventObject* event :
         {&eventBatchReady_, &silentBatchReady_, &timerEvent_, &stopEvent_}) {
        if (!event->Create(wm::EventReset::automatic)) {
            wm::Trace(wm::message::eventNotMade, hr::outOfMemory);
            return hr::outOfMemory;
        }
    }
    const HRESULT timer = StartFlushTimer();
    if (Failed(timer))
        return timer;
    if (coordinatorThread_.IsRunning()) {
        wm::Trace(wm::message::coordinatorRunsAlready);
        wm::ReportError(hr::unexpected);
        return hr::ok;
    }
    if (!coordinatorThread_.Start([this] { return CoordinatorMain(); })) {
        constexpr std::uint32_t tooManyThreads = 0x9B;
        wm::Trace(wm::message::coordinatorNotStarted);
        wm::ReportError(hr::Code(tooManyThreads));
        return hr::threadNotStarted;
    }
    coordinatorThread_.SetName("ZEL Store Coordinator");
    return hr::ok;
}

HRESULT EventStoreImpl::StartFlushTimer() {
    if (!flushTimer_.Create([this] { timerEvent_.Set(); })) {
        const HRESULT result = TimerError();
        wm::Trace(wm::message::flushTimerNotMade, result);
        return result;
    }
    if (!flushTimer_.Start(periods_.flushTimerMs)) {
        const HRESULT result = TimerError();
        wm::Trace(wm::message::flushTimerNotStarted, result);
        flushTimer_.Stop();
        return result;
    }
    return hr::ok;
}

HRESULT EventStoreImpl::TimerError() const noexcept {
    if (const std::uint32_t code = flushTimer_.LastError())
        return FromWin32(code);
    const HRESULT last = wm::LastSystemError();
    return Failed(last) ? last : hr::unexpected;
}

HRESULT EventStoreImpl::CoordinatorMain() {
    const HANDLE handles[waitCount] = {stopEvent_.Handle(), timerEvent_.Handle(),
                                       silentBatchReady_.Handle(), eventBatchReady_.Handle()};
    for (;;) {
        const std::uint32_t woken = wm::WaitForAny(waitCount, handles, periods_.coordinatorWaitMs);
        if (woken == waitStop) {
            wm::Trace(wm::message::coordinatorEnds);
            break;
        }
        if (woken != wm::waitTimedOut && woken >= waitCount) {
            wm::Trace(wm::message::coordinatorWaitFailed);
            wm::ReportError(hr::Code(woken));
            break;
        }
        // One reading for what this turn flushes; a later change belongs to the next.
        const bool live = liveMode_.load(std::memory_order_relaxed);
        if (woken == wm::waitTimedOut && !live)
            continue;
        FlushQueues(live || woken == waitTimer ? Flush::everything : Flush::fullBatches);
    }
    coordinatorThread_.SetName("ZEL Store Coordinator - Terminating");
    return hr::ok;
}

void EventStoreImpl::FlushQueues(Flush what) {
    // Events first, so that no silent enrichment reaches the disk ahead of its event.
    FlushQueue(eventQueue_, RecordKind::event, what);
    FlushQueue(silentQueue_, RecordKind::silentEnrichment, what);
}

// The batches that are there; what comes meanwhile is announced for the next turn. A few at a time:
// all at once would let the producers fill the queue a second time, and a batch that is written
// gives its memory to the next.
void EventStoreImpl::FlushQueue(IncomingQueue& queue, RecordKind kind, Flush what) {
    constexpr std::size_t mostInHand = 4;
    IZelDbImpl* const database = database_.load(std::memory_order_acquire);
    const std::size_t count = queue.Size();
    std::size_t taken = 0;
    do {
        BatchList batches;
        queue.DequeueBatches(batches, what, std::min(count - taken, mostInHand));
        if (batches.empty())
            return;
        if (taken == 0 && kind == RecordKind::event && database != nullptr)
            database->AwaitWriteFolder([this] { return coordinatorThread_.StopRequested(); });
        taken += batches.size();
        InsertBatches(std::move(batches), kind);
    } while (taken < count);
}

void EventStoreImpl::InsertBatches(BatchList batches, RecordKind kind) {
    while (!batches.empty()) {
        std::unique_ptr<EventBatch> batch = std::move(batches.front());
        batches.pop_front();
        IgnoreResult(AtBoundary([&] { return InsertBatch(std::move(batch), kind); }),
                     "the database counts its failures, and the other batches still go out");
    }
}

HRESULT EventStoreImpl::InsertBatch(std::unique_ptr<EventBatch> batch, RecordKind kind) {
    IZelDbImpl* const database = database_.load(std::memory_order_acquire);
    if (database == nullptr) {
        wm::ReportError(hr::fail);
        return hr::fail;
    }
    if (batch == nullptr) {
        wm::ReportError(hr::invalidArgument);
        return hr::invalidArgument;
    }
    const bool isEvent = kind == RecordKind::event;
    RecordBatch& records = batch->Records();
    const HRESULT result =
        isEvent ? database->WriteRecords(records) : database->WriteSilentRecords(records);
    if (Failed(result)) {
        wm::Trace(wm::message::batchLost, result);
        if (isEvent)
            ReportLostEvents(result, batch->Added(), records);
    }
    // Behind the report of a loss, as hosts rely on.
    (isEvent ? settled_ : settledEnrichments_) += batch->Added();
    if (isEvent)
        NotifyJob(records);
    (isEvent ? eventQueue_ : silentQueue_).Recycle(std::move(records));
    return result;
}

// Only rows by time of receipt are sent on by the job, and they stand together in a batch, behind
// all events: one search tells.
void EventStoreImpl::NotifyJob(const RecordBatch& records) {
    if (!liveMode_.load(std::memory_order_relaxed))
        return;
    const auto first = records.lower_bound(std::string(1, receivePrefix));
    if (first == records.end() || !first->first.starts_with(receivePrefix))
        return;
    if (!jobController_) {
        wm::Trace(wm::message::noJobController);
        return;
    }
    const HRESULT result = jobController_->RunJobNow();
    if (Failed(result))
        wm::Trace(wm::message::jobNotStarted, result);
}

}  // namespace ZEL
