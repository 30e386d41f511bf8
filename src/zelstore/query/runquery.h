#pragma once

#include "common/eventobject.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/ieventstore.h"

namespace ZEL {

// Runs an event_query document against `database` on the calling thread, as IEventStore::QueryEx
// tells it. A null `database` means that no store is open. Throws nothing.
HRESULT RunQuery(IZelDbImpl* database, IStringValue* document, IQueryCallback* callback,
                 HANDLE stopEvent, HANDLE pauseEvent);

}  // namespace ZEL
