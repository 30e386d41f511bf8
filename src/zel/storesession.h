#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/countedptr.h"
#include "common/errorreport.h"
#include "zelstore/ieventstore.h"

namespace zel {

// What is asked of all commands.
struct GlobalOptions {
    std::string store;   // --store, else ZEL_STORE, else the configuration
    std::string config;  // an ini file with path tokens, such as ZELDataStore=/var/lib/zel
    bool verbose = false;
};

// Reads the configuration and tells the host services the store's directory and the settings file.
// False, with a message, when the configuration can't be used.
bool ApplyOptions(const GlobalOptions& options);

// How often one kind of operation failed on a database.
struct DatabaseError {
    std::string folder;
    std::uint32_t operation = 0;  // 1 open, 2 read, 3 write; 0 when another kind failed first
    std::uint32_t count = 0;
    std::int32_t lastResult = 0;

    const char* Operation() const;
    std::string Text() const;
    friend bool operator==(const DatabaseError&, const DatabaseError&) = default;
};

// What hears the store's error reports since ApplyOptions.
wm::IErrorReportSink* HostReports() noexcept;

// A started store. Ends it when it goes.
class StoreSession {
public:
    StoreSession() = default;
    ~StoreSession() { Close(); }
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    enum class Need { existing, writable };

    // Loads the component and starts the store. With `writable` the directory is made (mode 0700)
    // when it is missing; else it waits a little for other readers, since two processes can't have
    // a folder open at once. False, with one message, when any of it fails.
    bool Open(Need need);
    // Flushes and closes; tells failures. False when something was not written.
    bool Close();

    // What the store's table of errors holds. False when it can't be read.
    bool ReadDatabaseErrors(std::vector<DatabaseError>* errors) const;
    // The same; clears the table.
    std::vector<DatabaseError> TakeDatabaseErrors();
    // The same, told; the number of failures, reads that met damaged data included.
    std::uint32_t TellDatabaseErrors();

    ZEL::IEventStore7* operator->() const noexcept { return store_.Get(); }
    ZEL::IEventStore7& operator*() const noexcept { return *store_; }

private:
    bool CloseStore();

    ZEL::CountedPtr<ZEL::IEventStore7> store_;
    int turn_ = -1;  // a descriptor of the store's directory, locked against other readers
};

// What the store last said of a record or a document that it did not understand, on this thread.
std::string TakeReason();

// The store's directory, made when it is missing and `need` asks for that. False, with a message,
// when none is named or it can't be used.
bool FindStore(StoreSession::Need need, std::string* directory);

// A string value of a text that is known to be UTF-8; null when it is not, or without memory.
ZEL::CountedPtr<ZEL::IStringValue> ToValue(std::string_view utf8);
std::string ToText(ZEL::IStringValue* value);

// The text as a JSON string, with its quotes.
std::string JsonString(std::string_view utf8);

}  // namespace zel
