#pragma once

#include "zelstore/ieventstore.h"

namespace ZEL {

// One query that runs on a thread of its own. Operations may be called from any thread, also from
// the query's own callback. Dropping the last reference does not end the query: StopAndWait does,
// and it is also what frees a finished query before the store stops.
class IZelStoreQuery : public ITobBase {
public:
    // Both do nothing and succeed.
    virtual HRESULT ReservedA() = 0;
    virtual HRESULT ReservedB() = 0;
    // Ends the query, also a paused one, waits for that and frees it; it takes a moment, whatever
    // the query is busy with. The end call brings 0x80004004 when databases or sub-queries were
    // left out. hr::nothingToDo when there is none (any more), hr::ok when the store is stopped.
    // Called inside the query's callback it does not wait, nor where the query waits, itself or
    // through others, for the one whose callback calls.
    virtual HRESULT StopAndWait() = 0;
    // Asks the walk of the database in hand to end; later databases are still visited, for half a
    // second. What is left then is left out, and the end call brings 0x80004004.
    // hr::nothingToDo when there is no query, 0x80004005 when the store is stopped.
    virtual HRESULT RequestStop() = 0;
    // Runs an event_query document. Results and the one end call go to `callback` on the query's
    // thread; both arguments are referenced until the query's end. 0x80004005 when the store is
    // stopped, 0x80004004 while it is stopping, 0x80070057 for a null argument, 0x8007000E,
    // 0x8007009B without a thread. Started again, the object stands for the new query, and the
    // former one is left to the end of the store.
    virtual HRESULT Start(IStringValue* document, IQueryCallback* callback) = 0;

protected:
    ~IZelStoreQuery() = default;
};

class IZelStoreQuery2 : public IZelStoreQuery {
public:
    // Holds the walk at its next thousandth row, until Resume. Both succeed whatever there is to
    // hold.
    virtual HRESULT Pause() = 0;
    virtual HRESULT Resume() = 0;

protected:
    ~IZelStoreQuery2() = default;
};

inline constexpr GUID eventsQueryObjectId = MakeGuid("CCD648C0-5EBC-4039-8D4F-E56BD0825B00");
inline constexpr GUID iidZelStoreQuery = MakeGuid("E66E0BB1-6AC0-4FDC-8F4F-4992876556EA");
inline constexpr GUID iidZelStoreQuery2 = MakeGuid("446A3C37-607C-440F-90AE-D8CEAB813EAA");

}  // namespace ZEL
