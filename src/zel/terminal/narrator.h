#pragma once

#include <string>

#include "common/errorreport.h"
#include "connection/sessionlistener.h"
#include "connection/storelook.h"

namespace zel {

// What is asked of all commands. Empty texts stand for flags that were not given.
struct GlobalOptions {
    std::string store;   // --store, else ZEL_STORE, else the configuration
    std::string socket;  // of an agent that owns the store; empty: the default one may be taken
    std::string config;  // an ini file with path tokens, such as ZELDataStore=/var/lib/zel
    bool verbose = false;
};

// Reads the configuration and tells the host services the store's directory and the settings file;
// from then on what the store reports is told. False, with a message, when the configuration can't
// be used. To be called once, before the first session. The sink that it sets stays until the
// process ends.
bool ApplyOptions(const GlobalOptions& options);

// Whether all is to be told, as asked for with --verbose. False before ApplyOptions.
bool TellsAll() noexcept;

// Who stands at the terminal: hears sessions, and interrupts their waits with Ctrl-C. Lives until
// the process ends. Any thread.
ISessionListener& Terminal() noexcept;

// What hears the store's error reports since ApplyOptions. Who puts a sink of its own in front
// passes reports on to this one and puts it back at the end. Null before ApplyOptions.
wm::IErrorReportSink* HostReports() noexcept;

// FindStore of the connection, with its message told. `*directory` is a path of the system in
// UTF-8.
bool FindStore(StoreNeed need, std::string* directory);
// LookAtStore of the connection likewise.
bool LookAtStore(StoreNeed need, StoreLook* look);

}  // namespace zel
