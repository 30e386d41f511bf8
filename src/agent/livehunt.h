#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "agent/agentlog.h"
#include "agent/alerts.h"
#include "agent/config.h"
#include "agent/rulewatch.h"
#include "agent/spool.h"

namespace zel {

// Rules on what comes in, and who is told of their hits, as the configuration has it. Any thread.
class LiveHunt {
public:
    // All outlive this. `onEnrichments` is called when the spool has more of them.
    LiveHunt(Spool& spool, AgentLog& log, std::function<void()> onEnrichments);

    // Reads the rules anew, which may take seconds, and goes on with them. Rules that are refused
    // are told, and the others run. To be called once ahead of the first drop from the spool.
    void Use(const AgentConfig& config);
    void Wake() { watch_.Wake(); }
    void Stop();

    RuleWatch::Counts Hits() const { return watch_.Count(); }
    Alerts::Counts Told() const { return alerts_.Count(); }
    // Why the rules of this moment fit an event, in lines, by their identifiers, or by
    // their titles where they have none.
    std::map<std::string, std::vector<std::string>> Explain(std::string_view event) const;
    std::uint64_t Refused() const noexcept { return refused_; }

private:
    AgentLog& log_;
    Alerts alerts_;
    RuleWatch watch_;
    mutable std::mutex rulesMutex_;
    std::shared_ptr<const RuleSet> rules_;
    std::atomic<std::uint64_t> refused_{0};
};

}  // namespace zel
