#pragma once

#include "common/eventobject.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/ieventstore.h"

namespace ZEL {

// Runs an event_query document against `database` on the calling thread, as IEventStore::QueryEx
// tells it. A null `database` means that no store is open. Throws nothing. Its result is also what
// the end call brings. While it runs, the thread has a watch of its own (endwatch.h), which all
// that it calls counts its work at; a query inside a callback of another has its own as well.
HRESULT RunQuery(IZelDbImpl* database, IStringValue* document, IQueryCallback* callback,
                 HANDLE stopEvent, HANDLE pauseEvent);

}  // namespace ZEL
