#include "zelstore/query/backgroundquery.h"

#include <utility>

#include "common/errorreport.h"

namespace ZEL {

HRESULT BackgroundQuery::Init(CountedPtr<IEventStore> store) {
    if (!work_->stopEvent.Create(false, false) || !work_->pauseEvent.Create(true, true)) {
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

void BackgroundQuery::Cancel() {
    const wm::Hold hold(lock_);
    cancelled_ = true;
    work_->stopEvent.Set();
    work_->pauseEvent.Set();
}

void BackgroundQuery::Pause() {
    const wm::Hold hold(lock_);
    if (!cancelled_)
        work_->pauseEvent.Reset();
}

HRESULT BackgroundQuery::Work::Run() {
    void* face = nullptr;
    HRESULT result = hr::ok;
    if (Succeeded(store->QueryInterface(iidEventStore2, &face))) {
        const auto pausable = CountedPtr<IEventStore2>::Adopt(static_cast<IEventStore2*>(face));
        result = pausable->QueryEx(document.Get(), callback.Get(), stopEvent.Handle(),
                                   pauseEvent.Handle());
    } else {
        result = store->Query(document.Get(), callback.Get(), stopEvent.Handle());
    }
    if (Failed(result))
        wm::ReportError(result, "ZEL Query");
    // An ended query may stay entered for long; it needs none of these any more.
    store.Reset();
    callback.Reset();
    document.Reset();
    return result;
}

}  // namespace ZEL
