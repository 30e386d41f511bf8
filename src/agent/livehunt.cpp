#include "agent/livehunt.h"

#include <algorithm>
#include <utility>

#include "agent/rulebook.h"

namespace zel {

LiveHunt::LiveHunt(Spool& spool, AgentLog& log, std::function<void()> onEnrichments)
    : log_(log),
      alerts_(spool, log),
      watch_(spool, log, [this, onEnrichments = std::move(onEnrichments)] {
          onEnrichments();
          alerts_.Wake();
      }) {}

void LiveHunt::Use(const AgentConfig& config) {
    constexpr std::size_t mostTold = 5;  // messages; --check tells all
    Rulebook book = ReadRulebook(config);
    for (std::size_t i = 0; i < std::min(mostTold, book.problems.size()); ++i)
        log_.Say(book.problems[i]);
    if (!book.summary.empty())
        log_.Say("rules: " + book.summary);
    refused_ = book.problems.size();
    const AlertWays ways{config.alertCommand, config.alertSocket, config.alertsAtOnce,
                         config.alertsPerSecond, config.alertTime};
    alerts_.Use(ways);
    watch_.Use(std::move(book.rules),
               {static_cast<std::size_t>(config.huntMemory), config.huntBacklog, ways.Any()});
}

void LiveHunt::Stop() {
    watch_.Stop();
    alerts_.Stop();
}

}  // namespace zel
