#pragma once

#include <optional>
#include <string>

#include "agent/config.h"
#include "common/errorreport.h"
#include "connection/sessionlistener.h"

namespace zel {

enum class AgentEnd {
    done,  // told to end, or standard input has ended, and all that was accepted is in the store
    left,  // the same, but some of it waits in the spool for the next start
    notBegun,  // the store, the spool or a listener can't be had, which was told
};

// Runs the store as a service until the listener's wait is to end; `stop` is a descriptor that can
// be read from then on. `reports` is the sink of the process, which must count what the store
// loses. With `input` events are read of that descriptor as well, and its end ends the service. One
// at a time in a process; the process has no other session.
AgentEnd RunAgent(const AgentConfig& config, const std::string& version, ISessionListener& listener,
                  wm::IErrorReportSink* reports, int stop, std::optional<int> input = {});

}  // namespace zel
