#pragma once

#include "common/itobbaseimpl.h"
#include "common/lock.h"
#include "zelstore/query/querymanager.h"
#include "zelstore/izelstorequery.h"

namespace ZEL {

// A query on a thread of its own, as a host holds it: the name of an entry in the query manager.
// All operations may be called from any thread. Dropping it leaves the query running.
class EventsQuery final : public IZelStoreQuery2,
                          public ITobBaseImpl<CTobThreadSafeRefCount>,
                          public vodLib::NonCopyable {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override;
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    HRESULT ReservedA() override { return hr::ok; }
    HRESULT ReservedB() override { return hr::ok; }
    HRESULT StopAndWait() override;
    HRESULT RequestStop() override;
    HRESULT Start(IStringValue* document, IQueryCallback* callback) override;
    HRESULT Pause() override;
    HRESULT Resume() override;

    virtual ITobBase* GetOwner() { return owner_.Get(); }
    virtual ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }
    virtual TobResult AttachOwner(ITobBase* owner) { return owner_.Attach(owner); }

private:
    QueryId Id() const EXCLUDES(idLock_);
    void SetId(const QueryId& id) EXCLUDES(idLock_);

    ObjectOwnership owner_;
    mutable wm::Lock idLock_;
    QueryId queryId_ GUARDED_BY(idLock_);  // all zero until a start succeeds
};

}  // namespace ZEL
