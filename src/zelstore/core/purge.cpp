#include "common/hostservices.h"
#include "common/settingsvalue.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/core/storesettings.h"
#include "zelstore/database/izeldbimpl.h"

// Purging. The work runs on a thread of its own, one at a time, while the caller waits for it
// without any lock; so Stop and other callers are never held up by a purge. Its outcome goes to the
// operational state of the host, once for each change.

namespace ZEL {

HRESULT EventStoreImpl::Purge(std::uint32_t maxSizeMegabytes) {
    {
        const wm::Hold hold(stateLock_);
        if (!running_) {
            wm::Trace(wm::message::storeNotRunning, hr::aborted);
            return hr::aborted;
        }
        if (readsAlone_.load(std::memory_order_relaxed))
            return hr::accessDenied;
        if (purgeThread_.IsRunning()) {
            wm::Trace(wm::message::purgeRunsAlready, hr::nothingToDo);
            return hr::nothingToDo;
        }
        if (!purgeThread_.Start([this, maxSizeMegabytes] { return PurgeMain(maxSizeMegabytes); })) {
            wm::Trace(wm::message::purgeNotStarted, hr::threadNotStarted);
            return hr::threadNotStarted;
        }
        purgeThread_.SetName("ZEL Store Purge");
    }
    purgeThread_.Wait();
    return hr::ok;
}

HRESULT EventStoreImpl::PurgeMain(std::uint32_t maxSizeMegabytes) {
    IZelDbImpl* const database = database_.load(std::memory_order_acquire);
    if (database == nullptr) {
        wm::ReportError(hr::fail);
        wm::Trace(wm::message::noDatabase, hr::fail);
        return hr::fail;
    }
    std::uint32_t status = 0;
    const HRESULT result = database->EnforceSizeLimit(maxSizeMegabytes, &status);
    if (Failed(result)) {
        wm::Trace(wm::message::sizeLimitNotEnforced, result);
        return result;
    }
    wm::Trace(status == sizeLimitHonored ? wm::message::withinSizeLimit
                                         : wm::message::aboveSizeLimit);
    PublishPurgeStatus(status);
    return hr::ok;
}

void EventStoreImpl::PublishPurgeStatus(std::uint32_t status) {
    // Most purges end as the one before did; only a change is worth a write.
    if (status == lastPurgeStatus_)
        return;
    lastPurgeStatus_ = status;
    IgnoreResult(wm::WriteSetting(settingsKeyState, settingsLimitHonored, status),
                 "traced; the next change writes again");
}

}  // namespace ZEL
