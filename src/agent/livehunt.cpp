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
    {
        const std::lock_guard hold(rulesMutex_);
        rules_ = book.rules;
    }
    watch_.Use(std::move(book.rules),
               {static_cast<std::size_t>(config.huntMemory), config.huntBacklog, ways.Any()});
}

std::map<std::string, std::vector<std::string>> LiveHunt::Explain(std::string_view event) const {
    std::shared_ptr<const RuleSet> rules;
    {
        const std::lock_guard hold(rulesMutex_);
        rules = rules_;
    }
    std::map<std::string, std::vector<std::string>> reasons;
    if (!rules)
        return reasons;
    RuleRun run(*rules);
    if (!run.Test(event))
        return reasons;
    for (const std::uint32_t hit : run.Hits()) {
        const Rule& rule = rules->Rules()[hit];
        reasons.try_emplace(rule.id.empty() ? rule.title : rule.id, run.WhyOf(hit));
    }
    return reasons;
}

void LiveHunt::Stop() {
    watch_.Stop();
    alerts_.Stop();
}

}  // namespace zel
