#include "zelstore/core/eventstoreimpl.h"

#include <new>

#include "common/boundary.h"
#include "common/hostservices.h"
#include "common/settingsvalue.h"
#include "common/valuetext.h"
#include "zelstore/core/storesettings.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/jobs/jobworkercontroller.h"
#include "zelstore/query/querymanager.h"
#include "zelstore/query/runquery.h"

// Starting and stopping.
//
// Initialize builds the store up in a fixed order and, when a step fails, stops and closes what
// there is; so each step of that looks whether what it ends exists. The coordinator starts before
// the database is opened: no record can reach it in between, since Insert refuses records while
// there is no database.
//
// Stopping takes two calls. Stop ends the coordinator and waits for what it has in hand, tells the
// queries to end and writes on the caller's thread what is queued. Shutdown waits for the purge and
// the queries, and closes. A record that comes between the two stays in its queue for a later
// Initialize.
//
// The three exclude each other by one lock. A query's callback may call any of them while another
// thread waits in Shutdown for that very query, so Shutdown waits without the lock, and looks at
// the era when it comes back: after a start, the store is somebody's again and stays open; after a
// start that was stopped, there is more to wait for.

namespace ZEL {

std::function<IZELJobController*()>& JobControllerFactory() noexcept {
    static std::function<IZELJobController*()> jobControllerFactory;
    return jobControllerFactory;
}

std::shared_ptr<EventStoreImpl> EventStoreImpl::GetInstance() noexcept {
    static wm::Lock lock;
    static std::weak_ptr<EventStoreImpl> living;
    const wm::Hold hold(lock);
    std::shared_ptr<EventStoreImpl> core = living.lock();
    if (core)
        return core;
    try {
        core = std::make_shared<EventStoreImpl>();
        living = core;
    } catch (...) {
        wm::Trace(wm::message::storeNotMade, hr::outOfMemory);
    }
    return core;
}

EventStoreImpl::~EventStoreImpl() {
    purgeThread_.Wait();
    // Without Stop the coordinator would never end, and a thread must not outlive its store.
    stopEvent_.Set();
    flushTimer_.Stop();
    coordinatorThread_.Wait();
}

HRESULT EventStoreImpl::Initialize(StoreUse use) {
    const wm::Hold hold(stateLock_);
    if (running_)
        return readsAlone_.load(std::memory_order_relaxed) == (use == StoreUse::readAlone)
                   ? hr::nothingToDo
                   : hr::fail;
    ++era_;
    HRESULT result = hr::outOfMemory;
    try {
        result = Start(use);
    } catch (...) {
        wm::Trace(wm::message::startThrew, result);
    }
    if (Failed(result)) {
        IgnoreResult(Stop(), "the failure of the start is what the caller needs");
        purgeThread_.Wait();  // one of a former start
        Close();
    }
    return result;
}

HRESULT EventStoreImpl::Start(StoreUse use) {
    HRESULT result = use == StoreUse::readWrite ? StartWriting() : hr::ok;
    if (Failed(result))
        return result;
    result = OpenDatabase(use);
    if (Failed(result))
        return result;
    if (use == StoreUse::readWrite)
        ReadBlockSize();
    return EnableQueries();
}

HRESULT EventStoreImpl::StartWriting() {
    HRESULT result = StartJobController();
    if (Failed(result))
        return result;
    std::uint32_t capacity = IncomingQueue::defaultCapacity;
    IgnoreResult(wm::ReadSetting(settingsKeyStore, settingsQueueLength, &capacity),
                 "the default stays");
    // The silent queue keeps its default whatever the setting says.
    if (capacity != 0)
        eventQueue_.SetCapacity(capacity);
    return StartCoordinator();
}

void EventStoreImpl::ReadBlockSize() {
    std::uint32_t bytes = 0;
    IgnoreResult(wm::ReadSetting(settingsKeyStore, settingsBlockSize, &bytes), "the default stays");
    const HRESULT result = database_.load(std::memory_order_acquire)->SetBlockSize(bytes);
    if (Failed(result))
        wm::ReportError(result, "Settings", "BLOCK_SIZE", std::to_string(bytes).c_str());
}

HRESULT EventStoreImpl::StartJobController() {
    if (jobController_)
        return hr::ok;
    const auto& factory = JobControllerFactory();
    if (factory)
        jobController_ = CountedPtr<IZELJobController>::Adopt(factory());
    else
        jobController_ = CountedPtr<IZELJobController>(new (std::nothrow) CJobWorkerController());
    if (!jobController_)
        return hr::unexpected;
    const HRESULT result = jobController_->Initialize();
    if (Failed(result))
        return result;
    return jobController_->AttachJob(storeJobId);
}

HRESULT EventStoreImpl::OpenDatabase(StoreUse use) {
    IZelDbImpl* const database = GetMasterDatabase(use);
    if (database == nullptr)
        return hr::fail;
    readsAlone_.store(use == StoreUse::readAlone, std::memory_order_relaxed);
    // Not taken back by a later failure or a close: the database is the process's, and records that
    // come while it is closed wait in the queues.
    database_.store(database, std::memory_order_release);
    return database->Initialize();
}

HRESULT EventStoreImpl::EnableQueries() {
    QueryModule& queries = Queries();
    const wm::Hold hold(queries.queryManagerLock);
    // Queries of the former start may still run. Their callbacks may want this very lock.
    if (queries.queryManager)
        queries.queryManager->AbandonAllQueries();
    queries.queryManager = std::make_shared<QueryManager>();
    queries.queriesEnabled = true;
    running_ = true;
    return hr::ok;
}

HRESULT EventStoreImpl::Stop() {
    const wm::Hold hold(stateLock_);
    running_ = false;
    purgeThread_.RequestStop();
    coordinatorThread_.RequestStop();
    stopEvent_.Set();
    StopQueries();
    coordinatorThread_.Wait();
    FlushQueues(Flush::everything);
    if (IZelDbImpl* database = database_.load(std::memory_order_acquire))
        database->AbortScans();
    return hr::ok;
}

void EventStoreImpl::StopQueries() {
    QueryModule& queries = Queries();
    const wm::Hold hold(queries.queryManagerLock);
    if (queries.queryManager) {
        queries.queriesEnabled = false;
        queries.queryManager->StopAllQueries();
    }
    queries.leaving.CancelAll();
}

HRESULT EventStoreImpl::Shutdown() {
    for (;;) {
        const std::uint64_t era = AwaitThreads();
        const wm::Hold hold(stateLock_);
        // Nobody started or closed the store meanwhile, so all there is has been waited for.
        if (era == era_)
            Close();
        else if (!running_)
            continue;
        return hr::ok;
    }
}

std::uint64_t EventStoreImpl::AwaitThreads() {
    QueryModule& queries = Queries();
    std::uint64_t era = 0;
    std::shared_ptr<QueryManager> manager;
    {
        const wm::Hold hold(stateLock_);
        const wm::Hold holdQueries(queries.queryManagerLock);
        era = era_;
        manager = queries.queryManager;
    }
    coordinatorThread_.Wait();
    purgeThread_.Wait();
    IgnoreResult(AtBoundary([&] {
                     if (manager)
                         manager->WaitAllQueries();
                     queries.leaving.WaitAll();
                     return hr::ok;
                 }),
                 "without memory for its list, a query is not waited for");
    return era;
}

void EventStoreImpl::Close() {
    ++era_;
    running_ = false;
    CloseQueries();
    flushTimer_.Stop();
    stopEvent_.Close();
    eventBatchReady_.Close();
    silentBatchReady_.Close();
    timerEvent_.Close();
    if (IZelDbImpl* database = database_.load(std::memory_order_acquire))
        database->CloseAll();
    liveMode_.exchange(false);
    DropJobController();
}

void EventStoreImpl::CloseQueries() {
    QueryModule& queries = Queries();
    const wm::Hold hold(queries.queryManagerLock);
    queries.queriesEnabled = false;
    if (queries.queryManager)
        queries.queryManager->AbandonAllQueries();
    queries.queryManager.reset();
}

void EventStoreImpl::DropJobController() {
    if (!jobController_)
        return;
    IgnoreResult(jobController_->Detach(), "the controller goes in any case");
    IgnoreResult(jobController_->Uninitialize(), "the controller goes in any case");
    jobController_.Reset();
}

HRESULT EventStoreImpl::Query(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent,
                              HANDLE pauseEvent) {
    return RunQuery(database_.load(std::memory_order_acquire), document, callback, stopEvent,
                    pauseEvent);
}

HRESULT EventStoreImpl::SetLiveMode(bool enable) {
    liveMode_.exchange(enable);
    return hr::ok;
}

namespace {

// A copy of a text, in UTF-8. 0x80070057 for none or an empty one, 0x80004005 for text that is not
// Unicode.
HRESULT TakeText(IStringValue* value, std::string* utf8) {
    if (value == nullptr)
        return hr::invalidArgument;
    if (const auto kept = wm::KeptUtf8(*value)) {
        utf8->assign(*kept);
        return kept->empty() ? hr::invalidArgument : hr::ok;
    }
    const std::wstring_view text(value->GetText(), value->GetLength(0));
    if (text.empty())
        return hr::invalidArgument;
    return wm::ToUtf8(text, *utf8) ? hr::ok : hr::fail;
}

}  // namespace

HRESULT EventStoreImpl::Insert(IStringValue* key, IStringValue* value, RecordKind kind) {
    if (database_.load(std::memory_order_acquire) == nullptr) {
        wm::ReportError(hr::notReady);
        return hr::notReady;
    }
    if (readsAlone_.load(std::memory_order_relaxed))
        return hr::accessDenied;
    std::string keyUtf8;
    std::string valueUtf8;
    const HRESULT keyTaken = TakeText(key, &keyUtf8);
    const HRESULT valueTaken = TakeText(value, &valueUtf8);
    // An empty text is told ahead of one that is not Unicode.
    const HRESULT result =
        keyTaken == hr::invalidArgument || Succeeded(valueTaken) ? keyTaken : valueTaken;
    if (Failed(result)) {
        wm::ReportError(result);
        return result;
    }
    return EnqueueForInsertion(std::move(keyUtf8), std::move(valueUtf8), kind);
}

HRESULT EventStoreImpl::EnqueueForInsertion(std::string key, std::string value, RecordKind kind) {
    const bool silent = kind == RecordKind::silentEnrichment;
    IncomingQueue& queue = silent ? silentQueue_ : eventQueue_;
    wm::EventObject& ready = silent ? silentBatchReady_ : eventBatchReady_;
    bool wake = false;
    HRESULT result =
        AtBoundary([&] { return queue.EnqueueEventData(std::move(key), std::move(value), &wake); });
    if (wake)
        ready.Set();  // also for a full queue: the coordinator makes room
    if (Failed(result)) {
        wm::Trace(wm::message::recordNotQueued, result);
        // Nobody will make room: another result than for a queue that is full for a moment.
        if (!coordinatorThread_.IsRunning()) {
            wm::ReportError(hr::unexpected,
                            silent ? "EnqueueForInsertion - Silent Enrichment"
                                   : "EnqueueForInsertion - FDR Event or Normal Enrichment",
                            "Failing Reason", "FDR Event Coordinator Thread is stopped.");
            result = hr::unexpected;
        }
    }
    return result;
}

}  // namespace ZEL
