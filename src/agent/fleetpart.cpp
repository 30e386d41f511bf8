#include "agent/fleetpart.h"

#include <sys/resource.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "agent/following/followplace.h"
#include "common/hostservices.h"
#include "common/utctime.h"
#include "fleet/fleettime.h"
#include "fleet/hostidentifier.h"

// Rounds: at this host's turn in each interval, all that is settled since the last one is sent, in
// as many requests as it takes. A fleet that is away holds up its own round and nothing else: what
// comes meanwhile stands in the store, where the next round finds it.

namespace zel {

using fleet::SendingSetup;
using std::chrono::milliseconds;

namespace {

// A person has to look, who may take his time; a reload tries at once.
constexpr auto personPause = std::chrono::minutes(5);
constexpr auto betweenEnrichments = std::chrono::seconds(30);
// Beside those who take events in, it is in no hurry.
constexpr int niceness = 5;

auto PartsOf(const SendingSetup& setup) {
    return std::tie(setup.address.url, setup.address.user, setup.address.database,
                    setup.address.password, setup.host, setup.directory, setup.stateFile,
                    setup.limits.rows, setup.limits.bytes, setup.delivery.rowsPerSecond);
}

}  // namespace

bool FleetPart::Plan::operator==(const Plan& other) const {
    return PartsOf(setup) == PartsOf(other.setup) && every == other.every &&
           problem == other.problem;
}

FleetPart::Plan FleetPart::PlanOf(const AgentConfig& config) {
    Plan plan;
    SendingSetup& setup = plan.setup;
    if (config.fleetUrl.empty())
        return plan;
    if (!fleet::ReadFleetAddress(config.fleetUrl, config.fleetPasswordFile, &setup.address,
                                 &plan.problem))
        return plan;
    setup.host = config.fleetHost;
    if (setup.host.empty())
        setup.host = fleet::HostIdentifier(&plan.problem);
    else if (!fleet::IsHostName(setup.host))
        plan.problem = "fleet.host is no name for a host";
    setup.directory = config.storePath;
    setup.stateFile = config.spoolPath + "/" + fleet::StateFileName(setup.address, setup.host);
    setup.limits = {static_cast<std::size_t>(config.fleetBatchRows),
                    static_cast<std::size_t>(config.fleetBatchSize)};
    setup.delivery.rowsPerSecond = config.fleetRate;
    setup.delivery.personPause = personPause;
    setup.delivery.packs = !setup.address.isLocal;
    plan.every = std::chrono::seconds(static_cast<std::int64_t>(config.fleetEvery));
    return plan;
}

// A delivery that waits for a person is begun anew by each reload.
void FleetPart::Use(const AgentConfig& config) {
    Plan plan = PlanOf(config);
    const bool isFailing = !Count().failing.empty();
    if (plan == plan_ && !isFailing)
        return;
    Stop();
    if (!plan.problem.empty())
        log_.Say("nothing is sent to the fleet: " + plan.problem);
    {
        const std::lock_guard hold(mutex_);
        plan_ = plan;
        stopping_ = false;
        whole_ = Clock::now();
    }
    if (!plan.setup.address.url.empty() && plan.problem.empty())
        thread_ = std::thread([this, plan = std::move(plan)] { Main(plan); });
}

void FleetPart::Stop() {
    std::shared_ptr<fleet::StoreSending> way;
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
        changed_.notify_all();
        way = way_;
    }
    if (way)
        way->End();
    if (thread_.joinable())
        thread_.join();
    const std::lock_guard hold(mutex_);
    way_.reset();
    failing_.clear();
}

void FleetPart::TellFailing(const std::string& why) {
    {
        const std::lock_guard hold(mutex_);
        if (failing_ == why)
            return;
        failing_ = why;
    }
    if (!why.empty())
        log_.Say("nothing is sent to the fleet: " + why);
}

void FleetPart::Main(const Plan& plan) {
    ::setpriority(PRIO_PROCESS, 0, niceness);  // of this thread
    std::shared_ptr<fleet::StoreSending> way;
    auto enriched = Clock::time_point::min();
    while (AwaitTurn(plan)) {
        std::string problem;
        if (!way) {
            way = fleet::StoreSending::Open(plan.setup, store_, past_, log_, &problem);
            TellFailing(problem);
            const std::lock_guard hold(mutex_);
            if (stopping_)
                return;
            way_ = way;
        }
        if (!way)
            continue;
        const bool isTurn =
            enriched == Clock::time_point::min() || Clock::now() - enriched >= betweenEnrichments;
        if (isTurn)
            enriched = Clock::now();
        if (!way->SendEvents("") || (isTurn && !way->SendEnrichments()))
            return;
        const std::lock_guard hold(mutex_);
        if (!way->HasUnread())
            whole_ = Clock::now();
    }
}

// This host's next turn by the clock, so that hosts keep apart however they were started.
bool FleetPart::AwaitTurn(const Plan& plan) {
    const std::uint64_t now =
        fleet::MillisecondsOf(wm::FormatUtc(wm::Clock().UtcNow())).value_or(0);
    const auto every = static_cast<std::uint64_t>(plan.every.count());
    const auto turn =
        static_cast<std::uint64_t>(fleet::TurnOf(plan.setup.host) * static_cast<double>(every));
    const std::uint64_t left = every - (now + every - turn) % every;
    std::unique_lock hold(mutex_);
    changed_.wait_for(hold, milliseconds(static_cast<std::int64_t>(left)),
                      [this] { return stopping_; });
    return !stopping_;
}

FleetPart::Counts FleetPart::Count() const {
    Counts counts;
    std::shared_ptr<fleet::StoreSending> way;
    {
        const std::lock_guard hold(mutex_);
        way = way_;
        counts.failing = failing_;
        counts.behindMs = static_cast<std::uint64_t>(
            std::chrono::duration_cast<milliseconds>(Clock::now() - whole_).count());
        counts.isNamed = !plan_.setup.address.url.empty() || !plan_.problem.empty();
        if (!plan_.problem.empty())
            counts.failing = plan_.problem;
    }
    if (!way)
        return counts;
    const fleet::RowDelivery::Sight sight = way->Look();
    counts.fleet = sight.state.fleet;
    counts.host = sight.state.host;
    counts.position = PositionOf(sight.state.place);
    counts.failing = sight.failing.empty() ? counts.failing : sight.failing;
    counts.sent = sight.state.sent;
    counts.refused = sight.state.refused;
    counts.missed = sight.state.missed;
    return counts;
}

}  // namespace zel
