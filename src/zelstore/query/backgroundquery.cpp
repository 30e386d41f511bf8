#include "zelstore/query/backgroundquery.h"

#include <utility>

#include "common/errorreport.h"
#include "common/neverdestroyed.h"

// One query on its thread, and who waits for whom.
//
// Any thread may end a query and wait for it, also the thread of another query, in its callback. If
// that one's callback waits for the first, neither would ever end. So each wait of one query's
// thread for another is entered, before it begins and under one lock; one that would close a circle
// is not begun, and its caller goes on as it does when a callback ends its own query. A thread
// waits for one query at a time, so that the circle is found by following the waits.

namespace ZEL {

thread_local BackgroundQuery::Work* BackgroundQuery::current_ = nullptr;

// The wait of this thread for a query, if this is a query's thread itself.
class BackgroundQuery::EnteredWait {
public:
    explicit EnteredWait(const Work* awaited) {
        if (current_ == nullptr)
            return;
        const wm::Hold hold(Lock());
        for (const Work* next = awaited; next != nullptr; next = next->awaited)
            closesCircle_ = closesCircle_ || next == current_;
        if (!closesCircle_)
            current_->awaited = awaited;
    }
    ~EnteredWait() {
        if (current_ == nullptr || closesCircle_)
            return;
        const wm::Hold hold(Lock());
        current_->awaited = nullptr;
    }
    EnteredWait(const EnteredWait&) = delete;
    EnteredWait& operator=(const EnteredWait&) = delete;

    bool ClosesCircle() const noexcept { return closesCircle_; }

private:
    static wm::Lock& Lock() noexcept {
        static const wm::NeverDestroyed<wm::Lock> lock;  // queries may run until the process ends
        return *lock;
    }

    bool closesCircle_ = false;
};

HRESULT BackgroundQuery::Init(CountedPtr<IEventStore> store) {
    if (!work_->stopEvent.Create(wm::EventReset::automatic) ||
        !work_->pauseEvent.Create(wm::EventReset::manual, wm::EventState::set)) {
        wm::ReportError(hr::outOfMemory);
        return hr::outOfMemory;
    }
    work_->store = std::move(store);
    return hr::ok;
}

HRESULT BackgroundQuery::Start(IStringValue* document, IQueryCallback* callback) {
    if (document == nullptr || callback == nullptr)
        return hr::invalidArgument;
    work_->document = CountedPtr<IStringValue>(document);
    work_->callback = CountedPtr<IQueryCallback>(callback);
    if (thread_.IsRunning())
        return hr::fail;
    work_->pauseEvent.Set();
    if (!thread_.Start([work = work_] { return work->Run(); })) {
        wm::ReportError(hr::threadNotStarted);
        return hr::threadNotStarted;
    }
    thread_.SetName("ZEL Query");
    return hr::ok;
}

void BackgroundQuery::Stop() {
    const EnteredWait wait(work_.get());
    if (!wait.ClosesCircle())
        thread_.Wait();
}

const std::atomic<bool>* BackgroundQuery::CancelledOfThread() noexcept {
    return current_ != nullptr ? &current_->cancelled : nullptr;
}

void BackgroundQuery::Cancel() {
    const wm::Hold hold(lock_);
    work_->cancelled = true;
    work_->stopEvent.Set();
    work_->pauseEvent.Set();
}

void BackgroundQuery::Pause() {
    const wm::Hold hold(lock_);
    if (!work_->cancelled)
        work_->pauseEvent.Reset();
}

HRESULT BackgroundQuery::Work::Ask() {
    void* face = nullptr;
    if (Failed(store->QueryInterface(iidEventStore2, &face)))
        return store->Query(document.Get(), callback.Get(), stopEvent.Handle());
    // The interface came with a reference.
    const auto pausable = CountedPtr<IEventStore2>::Adopt(static_cast<IEventStore2*>(face));
    return pausable->QueryEx(document.Get(), callback.Get(), stopEvent.Handle(),
                             pauseEvent.Handle());
}

HRESULT BackgroundQuery::Work::Run() {
    current_ = this;
    const HRESULT result = Ask();
    if (Failed(result) && result != hr::aborted)  // which is as somebody wished
        wm::ReportError(result, "ZEL Query");
    // An ended query may stay entered for long; it needs none of these any more.
    store.Reset();
    callback.Reset();
    document.Reset();
    current_ = nullptr;
    return result;
}

}  // namespace ZEL
