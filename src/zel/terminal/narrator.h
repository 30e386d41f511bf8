#pragma once

#include <string>

#include "common/errorreport.h"
#include "connection/sessionlistener.h"
#include "connection/storedirectory.h"

namespace zel {

// What is asked of all commands.
struct GlobalOptions {
    std::string store;   // --store, else ZEL_STORE, else the configuration
    std::string config;  // an ini file with path tokens, such as ZELDataStore=/var/lib/zel
    bool verbose = false;
};

// Reads the configuration and tells the host services the store's directory and the settings file;
// from then on what the store reports is told. False, with a message, when the configuration can't
// be used.
bool ApplyOptions(const GlobalOptions& options);

// Whether all is to be told, as asked for with --verbose.
bool TellsAll() noexcept;

// Who stands at the terminal: hears sessions, and interrupts their waits with Ctrl-C.
ISessionListener& Terminal() noexcept;

// What hears the store's error reports since ApplyOptions.
wm::IErrorReportSink* HostReports() noexcept;

// FindStore of the connection, with its message told.
bool FindStore(StoreNeed need, std::string* directory);

}  // namespace zel
