#include "zelstore/eventsquery.h"

#include "common/boundary.h"
#include "zelstore/eventstoreproxy.h"
#include "zelstore/query/querymanager.h"

// The object holds a name and no query. So it may be dropped while the query runs, and a query that
// was ended by somebody else is told by its name being gone. Which answer a store that is stopped
// gives is each operation's own: ending a query that can't exist any more is success, starting one
// is not.

namespace ZEL {

namespace {

// Runs `operation` on the manager while queries are enabled, and gives `disabled` otherwise. The
// module's lock is left first; the copied pointer keeps the manager alive beside a shut-down.
template <typename Operation>
HRESULT OnManager(HRESULT disabled, Operation&& operation) noexcept {
    return AtBoundary([&] {
        std::shared_ptr<QueryManager> manager;
        {
            QueryModule& module = Queries();
            const wm::Hold hold(module.queryManagerLock);
            if (module.queriesEnabled)
                manager = module.queryManager;
        }
        return manager ? operation(*manager) : disabled;
    });
}

}  // namespace

TobResult EventsQuery::QueryInterface(const GUID& iid, void** out) {
    IZelStoreQuery2* const face = this;
    return Answer(iid, out, {{iidZelStoreQuery, face}, {iidZelStoreQuery2, face}});
}

QueryId EventsQuery::Id() const {
    const wm::Hold hold(idLock_);
    return queryId_;
}

void EventsQuery::SetId(const QueryId& id) {
    const wm::Hold hold(idLock_);
    queryId_ = id;
}

HRESULT EventsQuery::StopAndWait() {
    return OnManager(hr::ok, [this](QueryManager& manager) { return manager.CancelQuery(Id()); });
}

HRESULT EventsQuery::RequestStop() {
    return OnManager(hr::fail, [this](QueryManager& manager) { return manager.RequestStop(Id()); });
}

HRESULT EventsQuery::Start(IStringValue* document, IQueryCallback* callback) {
    return OnManager(hr::fail, [&](QueryManager& manager) {
        // The name is set before the thread runs, for a callback that comes at once; a start that
        // fails must not lose the query that the object stood for.
        const QueryId former = Id();
        const HRESULT result =
            manager.StartQuery(CountedPtr<IEventStore>(new EventStoreProxy()), document, callback,
                               [this](const QueryId& id) { SetId(id); });
        if (Failed(result))
            SetId(former);
        return result;
    });
}

HRESULT EventsQuery::Pause() {
    return OnManager(hr::ok, [this](QueryManager& manager) {
        IgnoreResult(manager.Pause(Id()), "a query that is over needs no pause");
        return hr::ok;
    });
}

HRESULT EventsQuery::Resume() {
    return OnManager(hr::ok, [this](QueryManager& manager) {
        IgnoreResult(manager.Resume(Id()), "a query that is over is not paused");
        return hr::ok;
    });
}

}  // namespace ZEL
