#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "agent/agentlog.h"
#include "agent/config.h"
#include "agent/following/pastreader.h"
#include "fleet/sending/storesending.h"
#include "zelstore/ieventstore.h"

namespace zel {

// Sends what the store has to a fleet, as [fleet] of the configuration says, on threads of its own.
// Nobody waits for it. Any thread, but for Use and Stop, which one calls.
class FleetPart {
public:
    // All outlive this.
    FleetPart(ZEL::IEventStore7& store, IFollowPast& past, AgentLog& log)
        : store_(store), past_(past), log_(log) {}
    ~FleetPart() { Stop(); }
    FleetPart(const FleetPart&) = delete;
    FleetPart& operator=(const FleetPart&) = delete;

    // What the configuration names from now on, its password read anew. What can't be used is told,
    // and nothing is sent then.
    void Use(const AgentConfig& config);
    // Ends what is under way; the next process goes on from there.
    void Stop();

    struct Counts {
        bool isNamed = false;
        std::string fleet, host, position;  // empty: not known yet
        std::string failing;                // why nothing is sent just now; empty: it is
        std::uint64_t sent = 0, refused = 0, missed = 0;
        std::uint64_t behindMs = 0;  // since all was there
    };
    Counts Count() const;

private:
    using Clock = std::chrono::steady_clock;
    // What of the configuration it goes by.
    struct Plan {
        fleet::SendingSetup setup;
        std::chrono::milliseconds every{0};
        std::string problem;  // why it can't be used
        bool operator==(const Plan& other) const;
    };
    static Plan PlanOf(const AgentConfig& config);

    void Main(const Plan& plan);
    bool AwaitTurn(const Plan& plan);
    void TellFailing(const std::string& why);

    ZEL::IEventStore7& store_;
    IFollowPast& past_;
    AgentLog& log_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Plan plan_;
    bool stopping_ = false;
    std::shared_ptr<fleet::StoreSending> way_;
    std::string failing_;  // ahead of the way's own
    Clock::time_point whole_;
    std::thread thread_;
};

}  // namespace zel
