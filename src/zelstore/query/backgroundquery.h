#pragma once

#include <atomic>
#include <memory>

#include "common/countedptr.h"
#include "common/eventobject.h"
#include "common/lock.h"
#include "common/workerthread.h"
#include "zelstore/ieventstore.h"

namespace ZEL {

// One query on a thread of its own, which talks to the store as any host does: through a store
// object. Init and Start belong to the maker; the other operations may be called from any thread
// behind them. The thread shares what it works with, so that a query may be dropped inside its own
// callback. The destructor waits for the thread.
class BackgroundQuery {
public:
    BackgroundQuery() = default;
    ~BackgroundQuery() { Cancel(); }
    BackgroundQuery(const BackgroundQuery&) = delete;
    BackgroundQuery& operator=(const BackgroundQuery&) = delete;

    // Makes the events, and keeps the store object that the query asks. 0x8007000E when one can't
    // be made; the object is then only good for destruction.
    HRESULT Init(CountedPtr<IEventStore> store);
    // 0x80070057 for a null argument, 0x80004005 when the query runs already. 0x8007009B without a
    // thread; then, too, nothing was told to the callback. From success on the callback gets its
    // end call in any case.
    HRESULT Start(IStringValue* document, IQueryCallback* callback);
    // Waits for the thread; it is to be told to end before. Returns at once on that thread, and
    // when that thread waits for this one, itself or through other queries.
    void Stop();
    bool IsRunning() const { return thread_.IsRunning(); }

    // Ends the walk of the database in hand, also a paused one; a paused query then waits again in
    // the next database. Half a second later the query is over.
    void RequestStop() { work_->stopEvent.Set(); }
    // Ends the query at its next look, also a paused one. It can't be paused again, or the one who
    // waits for its end would wait without end.
    void Cancel() EXCLUDES(lock_);
    // Holds the walk at its next thousandth row. Does nothing to a query that was cancelled.
    void Pause() EXCLUDES(lock_);
    void Resume() { work_->pauseEvent.Set(); }

    // Whether the query of this thread was cancelled; null on a thread of no query. Valid on this
    // thread.
    static const std::atomic<bool>* CancelledOfThread() noexcept;

private:
    // One wait of one query's thread for another, entered for as long as it lasts.
    class EnteredWait;
    // What the thread works with, shared with the object, which may go first.
    struct Work {
        HRESULT Run();
        // Pausable where the store object is of the second version.
        HRESULT Ask();

        wm::EventObject stopEvent;   // auto-reset
        wm::EventObject pauseEvent;  // manual-reset; set means run
        CountedPtr<IEventStore> store;
        CountedPtr<IQueryCallback> callback;
        CountedPtr<IStringValue> document;
        std::atomic<bool> cancelled{false};
        const Work* awaited = nullptr;  // guarded by the lock of all waits
    };
    // Of the query whose thread this is; null on all other threads.
    static thread_local Work* current_;

    wm::Lock lock_;  // Pause against Cancel
    std::shared_ptr<Work> work_ = std::make_shared<Work>();
    wm::WorkerThread thread_;
};

}  // namespace ZEL
