#include "zel/terminal/narrator.h"

#include "common/hostservices.h"
#include "connection/storereports.h"
#include "zel/terminal/messages.h"

namespace zel {

namespace {

class TerminalListener final : public ISessionListener {
public:
    void Say(const std::string& text) override { zel::Say(text); }
    bool Interrupted() noexcept override { return zel::Interrupted(); }
};

wm::IErrorReportSink* hostReports = nullptr;
bool tellsAll = false;

bool NamePaths(const GlobalOptions& options, std::string* problem) {
    return (options.config.empty() || ReadConfiguration(options.config, problem)) &&
           (options.store.empty() || NamePath("ZELDataStore", options.store, problem)) &&
           NameDefaultSettings(problem);
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
    return isNamed;
}

bool FindStore(StoreNeed need, std::string* directory) {
    std::string problem;
    const bool isFound = FindStore(need, directory, &problem);
    if (!isFound)
        Say(problem);
    return isFound;
}

}  // namespace zel
