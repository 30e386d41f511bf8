#pragma once

#include <cstdint>
#include <vector>

#include "common/countedptr.h"
#include "connection/databaseerror.h"
#include "connection/sessionlistener.h"
#include "connection/storedirectory.h"
#include "zelstore/ieventstore.h"

namespace zel {

// A started store of this process. Ends it when it goes. What people should know of is told to the
// listener, which must outlive the session. For one thread, but for what the store's own interface
// allows.
class StoreSession {
public:
    explicit StoreSession(ISessionListener& listener) : listener_(listener) {}
    ~StoreSession() { Close(); }
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    // Loads the component and starts the store. With `existing` it waits a little for other
    // readers, since two processes can't have a folder open at once. False, with one message, when
    // any of it fails.
    bool Open(StoreNeed need);
    // Flushes and closes; tells failures. False when something was not written.
    bool Close();

    // What the store's table of errors holds. False when it can't be read.
    bool ReadDatabaseErrors(std::vector<DatabaseError>* errors) const {
        return zel::ReadDatabaseErrors(*store_, errors);
    }
    // The same; clears the table.
    std::vector<DatabaseError> TakeDatabaseErrors();
    // The same, told; the number of failures, reads that met damaged data included.
    std::uint32_t TellDatabaseErrors();

    ZEL::IEventStore7* operator->() const noexcept { return store_.Get(); }
    ZEL::IEventStore7& operator*() const noexcept { return *store_; }

private:
    bool CloseStore();
    int TakeTurn(const std::string& directory);

    ISessionListener& listener_;
    ZEL::CountedPtr<ZEL::IEventStore7> store_;
    int turn_ = -1;  // a descriptor of the store's directory, locked against other readers
};

}  // namespace zel
