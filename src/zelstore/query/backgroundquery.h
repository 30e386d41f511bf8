#pragma once

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

    // Makes the events, and keeps the store object that the query asks.
    HRESULT Init(CountedPtr<IEventStore> store);
    // 0x80070057 for a null argument, 0x80004005 when the query runs already.
    HRESULT Start(IStringValue* document, IQueryCallback* callback);
    // Waits for the thread, unless this is the thread. It is to be told to end before.
    void Stop() { thread_.Wait(); }
    bool IsRunning() const { return thread_.IsRunning(); }

    // Ends the walk of the database in hand, also a paused one; a paused query then waits again in
    // the next database.
    void RequestStop() { work_->stopEvent.Set(); }
    // The same, and wakes a paused walk. A query that was cancelled can't be paused again, or the
    // one who waits for its end would wait without end.
    void Cancel() EXCLUDES(lock_);
    void Pause() EXCLUDES(lock_);
    void Resume() { work_->pauseEvent.Set(); }

private:
    struct Work {
        HRESULT Run();

        wm::EventObject stopEvent;   // auto-reset
        wm::EventObject pauseEvent;  // manual-reset; set means run
        CountedPtr<IEventStore> store;
        CountedPtr<IQueryCallback> callback;
        CountedPtr<IStringValue> document;
    };

    wm::Lock lock_;
    bool cancelled_ GUARDED_BY(lock_) = false;
    std::shared_ptr<Work> work_ = std::make_shared<Work>();
    wm::WorkerThread thread_;
};

}  // namespace ZEL
