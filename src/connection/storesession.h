#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/countedptr.h"
#include "connection/databaseerror.h"
#include "connection/sessionlistener.h"
#include "connection/storedirectory.h"
#include "connection/storereports.h"
#include "zelstore/ieventstore.h"

namespace zel {

// A store of this process, or that of an agent, from Open to Close; it closes itself when it goes.
// What people should know of is told to the listener, which must outlive the session. For one
// thread, but for what the store's own interface allows. One at a time: all sessions reach the one
// store of the process.
//
// What the store loses is known from what it reports, so the process's report sink must be a
// StoreReports, or pass on to one, while a session is open.
class StoreSession {
public:
    explicit StoreSession(ISessionListener& listener) : listener_(listener) {}
    ~StoreSession() { Close(); }
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    // Loads the component and starts the store in the directory that FindStore gives; for `reading`
    // it is opened for that alone, which hinders nobody and is hindered by nobody. False, with one
    // message, when any of it fails; nothing is open then. What people should know of the
    // directory, such as that others than its owner can read it, is told on the way.
    //
    // Where UseAgent has named an agent, its store is opened: to read, or `existing` to enrich.
    // Where UseFleet has named a fleet, that is, to read alone.
    bool Open(StoreNeed need);
    // Loads the component alone, for what needs no store, such as MakeKey. False as above.
    bool Load();
    // Writes what is queued and closes; tells failures. False when something was not written or
    // could not be read. May be called again, and without Open: then there is nothing to do.
    // Records that are queued are nowhere else: a process that ends without it loses them.
    bool Close();

    // Records that were accepted since Open and are gone. All of them once Close has returned.
    LostRecords Lost() const noexcept { return RecordsLost() - lostBefore_; }
    // Whether Close has written all that was queued or counted it as lost; without that, records
    // may be left that neither happened to.
    bool Emptied() const noexcept { return emptied_; }

    // What the store's table of errors holds. False when it can't be read.
    bool ReadDatabaseErrors(std::vector<DatabaseError>* errors) const {
        return zel::ReadDatabaseErrors(*store_, errors);
    }
    // The same; clears the table. An entry that comes between the reading and the clearing is lost;
    // who can't afford that reads only.
    std::vector<DatabaseError> TakeDatabaseErrors();
    // The same, told; the number of failures, reads that met damaged data included.
    std::uint32_t TellDatabaseErrors();

    // Not before Open or Load has succeeded, nor after Close.
    ZEL::IEventStore7* operator->() const noexcept { return store_.Get(); }
    ZEL::IEventStore7& operator*() const noexcept { return *store_; }

private:
    bool OpenAtAgent(StoreNeed need);
    bool OpenFleet(StoreNeed need);
    bool Start(const std::string& directory, StoreNeed need);
    ZEL::HRESULT StartReading();

    ISessionListener& listener_;
    ZEL::CountedPtr<ZEL::IEventStore7> store_;
    LostRecords lostBefore_;
    bool started_ = false;
    bool emptied_ = true;
};

}  // namespace zel
