#pragma once

#include "common/itobbaseimpl.h"
#include "common/lock.h"
#include "zelstore/izelstorequery.h"
#include "zelstore/query/querymanager.h"

namespace ZEL {

// A query on a thread of its own, as a host holds it: the name of an entry in the query manager.
// All operations may be called from any thread. Dropping it leaves the query running.
class EventsQuery final : public TobObject<IZelStoreQuery2> {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override;

    HRESULT ReservedA() override { return hr::ok; }
    HRESULT ReservedB() override { return hr::ok; }
    HRESULT StopAndWait() override;
    HRESULT RequestStop() override;
    HRESULT Start(IStringValue* document, IQueryCallback* callback) override;
    HRESULT Pause() override;
    HRESULT Resume() override;

private:
    QueryId Id() const EXCLUDES(idLock_);
    void SetId(const QueryId& id) EXCLUDES(idLock_);

    mutable wm::Lock idLock_;
    QueryId queryId_ GUARDED_BY(idLock_);  // all zero until a start succeeds
};

}  // namespace ZEL
