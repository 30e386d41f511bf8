#include "zel/terminal/narrator.h"

#include "common/hostservices.h"
#include "connection/agentrequest.h"
#include "connection/fleetuse.h"
#include "connection/storereports.h"
#include "zel/terminal/messages.h"

// The one place where the connection, which knows no terminal, is joined to the program, which is
// for one: who hears messages, who may break waits off, where the store's reports go. It is set up
// once from the command line and then only read, so it needs no lock.

namespace zel {

namespace {

class TerminalListener final : public ISessionListener {
public:
    void Say(const std::string& text) override { zel::Say(text); }
    bool Interrupted() noexcept override { return zel::Interrupted(); }
};

wm::IErrorReportSink* hostReports = nullptr;
bool tellsAll = false;

// In this order, so that a flag wins over the file, and the default settings take what is left.
bool NamePaths(const GlobalOptions& options, std::string* problem) {
    return (options.config.empty() || ReadConfiguration(options.config, problem)) &&
           (options.store.empty() || NamePath("ZELDataStore", options.store, problem)) &&
           NameDefaultSettings(problem);
}

// An agent that was named is taken in place of a directory; one that is found, where none was
// named.
void ChooseAgent(const GlobalOptions& options) {
    std::wstring store;
    if (IsFleetUsed())
        return;
    if (!options.socket.empty())
        UseAgent(options.socket, Interrupted);
    else if (!(wm::ResolvePathVariable(L"%ZELDataStore%", store) && !store.empty()) &&
             IsSocket(defaultAgentSocket))
        UseAgent(defaultAgentSocket, Interrupted);
}

}  // namespace

ISessionListener& Terminal() noexcept {
    static TerminalListener terminal;
    return terminal;
}

wm::IErrorReportSink* HostReports() noexcept {
    return hostReports;
}

bool TellsAll() noexcept {
    return tellsAll;
}

// The sinks come first: a configuration that can't be used may be reported as well.
bool ApplyOptions(const GlobalOptions& options) {
    static StoreReports reports(Terminal(), options.verbose);
    hostReports = &reports;
    tellsAll = options.verbose;
    wm::SetErrorReportSink(&reports);
    wm::SetTraceSink(&reports);
    std::string problem;
    const bool isNamed = NamePaths(options, &problem);
    if (!isNamed)
        Say(problem);
    else
        ChooseAgent(options);
    return isNamed;
}

bool FindStore(StoreNeed need, std::string* directory) {
    std::string problem;
    const bool isFound = FindStore(need, directory, &problem);
    if (!isFound)
        Say(problem);
    return isFound;
}

bool LookAtStore(StoreNeed need, StoreLook* look) {
    std::string problem;
    const bool isSeen = LookAtStore(need, look, &problem);
    if (!isSeen)
        Say(problem);
    return isSeen;
}

}  // namespace zel
