#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "agent/access.h"
#include "agent/admission.h"
#include "agent/agentlog.h"
#include "agent/asking/questions.h"
#include "agent/feeder.h"
#include "agent/http.h"
#include "agent/liveconfig.h"
#include "agent/spool.h"
#include "zelstore/ieventstore.h"

namespace zel {

// What the watch over the disk has last seen. Any thread.
struct DiskSight {
    std::atomic<std::uint64_t> storeBytes{0};
    std::atomic<std::uint64_t> folders{0};
    std::atomic<std::uint64_t> freeBytes{0};  // of the tighter of the two volumes
};

class DiskWatch;
class EventWays;
class FleetPart;
class Followers;
class LiveHunt;
class Questions;
class WebRoutes;

// The parts of a running service, for those who answer requests. All live as long as the server.
struct AgentParts {
    const LiveConfig& config;
    ZEL::IEventStore7& store;
    AgentLog& log;
    Spool& spool;
    Admission& admission;
    Feeder& feeder;
    DiskSight& disk;
    DiskWatch& watch;
    Questions& questions;
    const AskByParameters& askByParameters;
    Followers& followers;
    LiveHunt& hunt;
    FleetPart& fleet;
    EventWays& events;
    const std::string started;            // UTC
    const std::uint64_t startedUnix = 0;  // seconds since 1970
    const std::string version;
    WebRoutes* web = nullptr;  // null: no page
};

// The ways in. Each reads the whole request, and answers once what it has taken is on the disk.
void TakeEvents(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
void TakeBulk(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
void TakeLogs(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

// Why the service is not as it should be, in constant words: "replaying", "disk full", "spool
// full", "store fails", "stalled". Empty when all is well.
std::vector<std::string_view> Degraded(const AgentParts& parts);
std::string StatusJson(const AgentParts& parts);
std::string MetricsText(const AgentParts& parts);

}  // namespace zel
