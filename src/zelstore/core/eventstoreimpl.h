#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "common/countedptr.h"
#include "common/eventobject.h"
#include "common/lock.h"
#include "common/waittimer.h"
#include "common/workerthread.h"
#include "zelstore/core/incomingqueue.h"
#include "zelstore/database/layout.h"
#include "zelstore/ieventstore.h"
#include "zelstore/jobs/izeljobcontroller.h"

namespace ZEL {

// How long the coordinator sleeps at most before it looks at the live mode, and how often partly
// filled batches go to the disk.
struct StorePeriods {
    std::uint32_t coordinatorWaitMs = 10000;
    std::uint32_t flushTimerMs = 60000;
};

// Which queue a record goes through, and which database it ends in.
enum class RecordKind {
    event,             // also an enrichment that is written beside the events
    silentEnrichment,  // goes to the database of its event's date
};

// The one running store of the process: two incoming queues, the coordinator thread that empties
// them into the database, the purge thread, and the start and stop of it all. Proxies share it. All
// operations may be called from any thread, also from callbacks of queries. The destructor writes
// nothing: Stop and Shutdown belong before it.
class EventStoreImpl {
public:
    // The core of the process: the living one, or a new one that is not started. Null when memory
    // runs out. It goes with its last proxy; what is queued then is lost, so hosts stop the store
    // first.
    static std::shared_ptr<EventStoreImpl> GetInstance() noexcept;

    explicit EventStoreImpl(StorePeriods periods = {}) : periods_(periods) {}
    virtual ~EventStoreImpl();
    EventStoreImpl(const EventStoreImpl&) = delete;
    EventStoreImpl& operator=(const EventStoreImpl&) = delete;

    // These and the others of the same names as IEventStore tells them, and IReadOnlyStore.
    HRESULT Initialize(StoreUse use = StoreUse::readWrite);
    HRESULT Stop();
    HRESULT Shutdown();

    // The text is made UTF-8 here, on the caller's thread, outside all locks. `kind` chooses
    // between Insert and InsertSilent.
    HRESULT Insert(IStringValue* key, IStringValue* value, RecordKind kind);
    // The same for texts that are UTF-8 already. They are moved on to the batch. Asks for no
    // database: what a closed store takes waits for its next start.
    HRESULT EnqueueForInsertion(std::string key, std::string value, RecordKind kind);

    // Runs on the calling thread and takes none of this class's locks. A null pauseEvent is never
    // waited for.
    HRESULT Query(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent,
                  HANDLE pauseEvent);
    // Waits for the purge without a lock, so that Stop and Shutdown can come in meanwhile.
    HRESULT Purge(std::uint32_t maxSizeMegabytes);
    HRESULT GetDatabaseErrors(IValueCollection** out);
    HRESULT ClearDatabaseErrors();
    HRESULT GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes);
    HRESULT SetLiveMode(bool enable);
    std::uint64_t SettledRecords() const noexcept { return settled_; }
    std::uint64_t SettledEnrichments() const noexcept { return settledEnrichments_; }

private:
    // The steps of a start, in their order. The first that fails ends it.
    HRESULT Start(StoreUse use) REQUIRES(stateLock_);
    HRESULT StartWriting() REQUIRES(stateLock_);
    HRESULT StartJobController() REQUIRES(stateLock_);
    // Gets the process's database at the first start; later ones find it again. From here on Insert
    // takes records.
    HRESULT OpenDatabase(StoreUse use);
    // One that can't be is reported; the former one stays.
    void ReadBlockSize();
    HRESULT EnableQueries() REQUIRES(stateLock_);
    // Refuses new queries of the store's threads, and tells those that run to end.
    void StopQueries();
    // Gives the era whose threads it has waited for.
    std::uint64_t AwaitThreads() EXCLUDES(stateLock_);
    // Ends what has no thread that works. Does no harm where there is nothing, or only a part.
    void Close() REQUIRES(stateLock_);
    // Queries that still run are left to the next Shutdown.
    void CloseQueries();
    void DropJobController() REQUIRES(stateLock_);

    // Makes the events and the timer and starts the thread that waits for them. One that a former
    // start has left running is kept: it is reported, and no failure.
    HRESULT StartCoordinator();
    HRESULT StartFlushTimer();
    HRESULT TimerError() const noexcept;
    // The body of the coordinator's thread: until the stop event, or until waiting fails.
    HRESULT CoordinatorMain();
    // One thread at a time: the coordinator, or Stop once that has ended.
    void FlushQueues(Flush what);
    void FlushQueue(IncomingQueue& queue, RecordKind kind, Flush what);
    // What fails for one batch does not keep the others from the disk.
    void InsertBatches(BatchList batches, RecordKind kind);
    // Writes a batch, tells what is lost if that fails, and gives the entries back to the queue.
    HRESULT InsertBatch(std::unique_ptr<EventBatch> batch, RecordKind kind);
    // In live mode, starts the store's job when there are receive-time rows among the records.
    void NotifyJob(const RecordBatch& records);
    // The body of the purge thread.
    HRESULT PurgeMain(std::uint32_t maxSizeMegabytes);
    // A status that can't be written is not tried again until it changes.
    void PublishPurgeStatus(std::uint32_t status);

    // Null means that the store is not open. Not owned: it lives until the process ends.
    std::atomic<IZelDbImpl*> database_{nullptr};
    std::atomic<bool> readsAlone_{false};  // set by the first start, for good
    IncomingQueue eventQueue_;             // events and normal enrichments
    IncomingQueue silentQueue_;            // silent enrichments
    wm::WorkerThread coordinatorThread_;
    wm::RegisteredWaitTimer flushTimer_;
    // Held by Initialize and Stop throughout, and by Shutdown while it closes, but not while that
    // waits for threads: a query's callback may want the lock. Recursive, since a start that fails
    // stops what it has made.
    wm::RecursiveLock stateLock_{wm::LockRank::state};
    // All auto-reset: several settings before the coordinator wakes count as one, which loses
    // nothing, since it takes all that is ready.
    wm::EventObject eventBatchReady_;
    wm::EventObject silentBatchReady_;
    wm::EventObject timerEvent_;
    wm::EventObject stopEvent_;
    wm::WorkerThread purgeThread_;
    std::uint32_t lastPurgeStatus_ = 0;  // of the purge thread alone
    bool running_ GUARDED_BY(stateLock_) = false;
    // One more with each start and each close, so that a Shutdown that has waited knows whether it
    // has waited for all there is.
    std::uint64_t era_ GUARDED_BY(stateLock_) = 0;
    // Set by any thread; the coordinator looks at it at each wake-up, so that a change may take ten
    // seconds.
    std::atomic<bool> liveMode_{false};
    // Records of the event queue that were written or reported as lost.
    std::atomic<std::uint64_t> settled_{0};
    std::atomic<std::uint64_t> settledEnrichments_{0};
    // Made by a start and dropped by the close that follows; in between only the thread that
    // flushes uses it.
    CountedPtr<IZELJobController> jobController_;
    const StorePeriods periods_;
};

// When set, makes the store's job controller, with one reference, in place of the default class.
// To be set before a store starts.
std::function<IZELJobController*()>& JobControllerFactory() noexcept;

}  // namespace ZEL
