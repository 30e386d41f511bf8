#pragma once

#include <functional>
#include <optional>
#include <string>

#include "agent/config.h"
#include "agent/web/webparts.h"
#include "common/errorreport.h"
#include "connection/sessionlistener.h"

namespace zel {

enum class AgentEnd {
    done,  // told to end, or standard input has ended, and all that was accepted is in the store
    left,  // the same, but some of it waits in the spool for the next start
    notBegun,  // the store, the spool or a listener can't be had, which was told
};

// How the configuration is read anew.
struct AgentReload {
    int descriptor = -1;  // eight bytes can be read when it is to be
    std::function<bool(AgentConfig* config, std::string* problem)> read = nullptr;
};

// Runs the store as a service until the listener's wait is to end; `stop` is a descriptor that can
// be read from then on. `reports` is the sink of the process, which must count what the store
// loses. With `input` events are read of that descriptor as well, and its end ends the service.
// What `reload` reads takes effect as far as it can, and what is wrong in it changes nothing. One
// at a time in a process; the process has no other session.
AgentEnd RunAgent(const AgentConfig& config, const std::string& version, ISessionListener& listener,
                  wm::IErrorReportSink* reports, int stop, const WebTools& tools,
                  std::optional<int> input = {}, const AgentReload& reload = {});

}  // namespace zel
