#include "agent/agent.h"

#include <poll.h>
#include <unistd.h>

#include <ctime>

#include "agent/asking/questions.h"
#include "agent/diskwatch.h"
#include "agent/fleetpart.h"
#include "agent/following/followers.h"
#include "agent/following/followplace.h"
#include "agent/httpserver.h"
#include "agent/livehunt.h"
#include "agent/notices.h"
#include "agent/routes.h"
#include "agent/servicemanager.h"
#include "agent/spoolpast.h"
#include "agent/tail.h"
#include "agent/web/countchanges.h"
#include "agent/web/eventways.h"
#include "agent/web/webroutes.h"
#include "agent/webhost.h"
#include "common/hostservices.h"
#include "connection/agentrequest.h"
#include "connection/storedirectory.h"
#include "zelstore/keys/receivekey.h"

// The service from its start to its end.
//
// Start: store, spool, the feeder that replays what is left, then the listeners; the service
// manager is told READY once the replay is done. End: no more requests, then no more commits, then
// what stands in the spool is given to the store, and the store writes it. Whatever is not done by
// then stands in the spool for the next start, so an end that is cut short loses nothing.

namespace zel {

namespace {

constexpr auto longestDrain = std::chrono::seconds(30);
constexpr auto longestEnding = std::chrono::seconds(5);  // of the ways in
constexpr int lookMs = 1000;
constexpr std::uint64_t stalledMs = 20000;
constexpr std::uint64_t extensionMs = 10000;  // while what was left is replayed

// The time in a receive-time key; empty for none.
std::string TimeOfKey(const std::string& key) {
    const auto place = ZEL::ParseReceiveKey(key);
    return place ? std::string(place->time) : "";
}

// The texts stay those of the delivery.
std::shared_ptr<const AcceptedBatch> MakeAcceptedBatch(std::shared_ptr<const Delivery> delivery) {
    auto batch = std::make_shared<AcceptedBatch>();
    for (const SpoolItem& item : delivery->items) {
        if (item.isDuplicate)
            continue;
        batch->events.push_back({item.key, item.receiveKey, item.record});
        batch->bytes += sizeof(SpoolItem) + item.key.size() + item.record.size();
    }
    batch->owner = std::move(delivery);
    return batch;
}

// Notices are of the past as well: what they say of a range changes what is known of it.
void TellArrivals(const Delivery& delivery, ArrivalChanges& changes) {
    EventSpan span{EventSpan::noEnd, EventSpan::noBegin};
    const std::string* last = nullptr;
    EventKeyReader reader;
    for (const SpoolItem& item : delivery.items) {
        if (item.isDuplicate)
            continue;
        const std::int64_t time = reader.Read(item.key).time;
        span = {std::min(span.since, time), std::max(span.until, time)};
        last = &item.receiveKey;
    }
    if (delivery.source == intakeSource::service)
        span = {EventSpan::noBegin, EventSpan::noEnd};
    if (last != nullptr)
        changes.OnAccepted(*last, span);
}

bool ReadAccess(const AgentConfig& config, AccessRules* access, std::string* problem) {
    GroupRights& rights = access->rights;
    AccessTokens& tokens = access->tokens;
    return rights.Give(Right::read, config.readGroup, problem) &&
           rights.Give(Right::write, config.writeGroup, problem) &&
           rights.Give(Right::annotate, config.annotateGroup, problem) &&
           rights.Give(Right::administer, config.adminGroup, problem) &&
           (config.writeTokenFile.empty() ||
            ReadToken(config.writeTokenFile, &tokens.write, problem)) &&
           (config.readTokenFile.empty() || ReadToken(config.readTokenFile, &tokens.read, problem));
}

std::chrono::seconds Seconds(std::uint64_t value) {
    return std::chrono::seconds(static_cast<std::int64_t>(value));
}

QuestionLimits QuestionLimitsOf(const AgentConfig& config) {
    return {config.questionsAtOnce, config.questionsWaiting, Seconds(config.questionTime),
            Seconds(config.questionStall), static_cast<std::size_t>(config.answerBuffer)};
}

std::string Listed(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

// Everything that a running service consists of, in the order in which it is made.
class Agent {
public:
    Agent(AgentConfig config, const std::string& version, ISessionListener& listener,
          wm::IErrorReportSink* reports, const WebTools& tools)
        : config_(std::move(config)),
          reports_(reports),
          tools_(tools),
          log_(listener),
          store_(log_),
          version_(version),
          watchdogMs_(WatchdogPeriodMs()) {}

    bool Start() { return OpenStore() && OpenSpool() && Listen(); }
    // Behind Start.
    void GoWays(std::optional<int> input);
    void Run(int stop, const AgentReload& reload);
    // Whether all is in the store.
    bool End();

private:
    bool OpenStore();
    bool OpenSpool();
    void Reload(const AgentReload& reload);
    void TakeReloaded(const AgentConfig& config);
    void TellLost(std::uint64_t lost);
    bool ListenAtSocket(std::string* problem);
    bool Listen();
    bool ListenForWeb(std::string* problem);
    void TellManager();

    LiveConfig config_;
    wm::IErrorReportSink* const reports_;
    const WebTools& tools_;
    AgentLog log_;
    StoreSession store_;
    const std::string version_;
    const std::uint64_t watchdogMs_;
    Spool spool_;
    SpoolPast past_{spool_};
    DiskSight sight_;
    Live<AccessRules> access_{AccessRules{}};
    std::unique_ptr<Followers> followers_;  // outlives those who call it
    std::unique_ptr<LiveHunt> hunt_;        // likewise
    std::unique_ptr<FleetPart> fleet_;
    std::unique_ptr<Notices> notices_;  // likewise
    std::unique_ptr<Feeder> feeder_;
    std::unique_ptr<Admission> admission_;
    std::unique_ptr<DiskWatch> watch_;
    std::unique_ptr<ArrivalChanges> changes_;
    std::unique_ptr<Questions> questions_;
    std::unique_ptr<EventWays> events_;
    std::unique_ptr<AgentParts> parts_;
    std::unique_ptr<Routes> routes_;
    std::unique_ptr<HttpServer> server_;
    std::unique_ptr<AgentWebHost> webHost_;
    std::unique_ptr<WebParts> webParts_;
    std::unique_ptr<WebRoutes> webRoutes_;
    std::unique_ptr<HttpServer> webServer_;
    std::string socketPath_;  // the one that is served
    Ways ways_;
    bool toldReady_ = false;
    std::uint64_t nextWatchdog_ = 0;
    std::uint64_t nextExtension_ = 0;
};

// Nothing that the service sets is to reach the settings of a person.
bool Agent::OpenStore() {
    std::string problem;
    ForgetDefaultSettings();
    // The socket that is there may be its own, left by a process that was killed.
    UseAgent("", nullptr);
    if (!NamePath("ZELDataStore", config_->storePath, &problem)) {
        log_.Say(problem);
        return false;
    }
    if (!store_.Open(StoreNeed::writable))
        return false;
    ZEL::IgnoreResult(store_->SetLiveMode(true), "always succeeds");
    return true;
}

bool Agent::OpenSpool() {
    std::string problem;
    const bool isOpen =
        spool_.Open(config_->spoolPath, {config_->idsKept, config_->idsAge}, &problem);
    if (!problem.empty())
        log_.Say(problem);
    if (!isOpen)
        return false;
    changes_ = std::make_unique<ArrivalChanges>(
        *store_, config_->storePath, [this] { return spool_.Settled(); }, spool_.Accepted());
    feeder_ = std::make_unique<Feeder>(spool_, store_, log_, config_->storePath,
                                       [this](std::uint64_t lost) {
                                           followers_->OnSettled();
                                           TellLost(lost);
                                       });
    admission_ = std::make_unique<Admission>(
        spool_, *store_, log_, config_->spoolMaxSize,
        std::chrono::seconds(static_cast<std::int64_t>(config_->spoolHold)), config_->heldPerUser,
        [this](const Admission::Taken& taken) {
            for (const auto& delivery : taken)
                TellArrivals(*delivery, *changes_);
            feeder_->Wake();
            hunt_->Wake();
            for (const auto& delivery : taken) {
                auto batch = MakeAcceptedBatch(delivery);
                if (!batch->events.empty())
                    log_.CountAccepted(delivery->source, batch->events.size());
                followers_->OnAccepted(std::move(batch));
            }
        });
    notices_ = std::make_unique<Notices>(spool_, *admission_, *store_, log_);
    watch_ = std::make_unique<DiskWatch>(config_, store_, spool_, past_.Purging(), *admission_,
                                         *notices_, log_, sight_);
    notices_->Begin(TimeOfKey(spool_.Accepted()));
    admission_->Prepare();
    followers_ = std::make_unique<Followers>(
        *store_, past_,
        FollowLimits{config_->followers, static_cast<std::size_t>(config_->answerBuffer),
                     std::chrono::seconds(static_cast<std::int64_t>(config_->questionStall))},
        PlaceBehind(spool_.Accepted()));
    hunt_ = std::make_unique<LiveHunt>(spool_, log_, [this] { feeder_->Wake(); });
    fleet_ = std::make_unique<FleetPart>(*store_, past_, log_);
    watch_->Look();
    hunt_->Use(*config_.Now());
    if (!feeder_->Start())
        return false;
    admission_->Start();
    notices_->Look();
    fleet_->Use(*config_.Now());
    return true;
}

// Parts of the spool that were damaged, and records that the store refused for good.
void Agent::TellLost(std::uint64_t lost) {
    const std::string now = wm::FormatUtc(wm::Clock().UtcNow());
    if (lost > 0)
        notices_->Add("records lost", now, now, lost);
}

// One that the service manager holds stays while the service is away, so it comes first.
bool Agent::ListenAtSocket(std::string* problem) {
    int handedOver = -1;
    if (!TakeSocket(&handedOver, &socketPath_, problem))
        return false;
    if (handedOver < 0) {
        socketPath_ = config_->socketPath;
        return socketPath_.empty() || server_->ListenAt(socketPath_, problem);
    }
    if (socketPath_ != config_->socketPath)
        log_.Say("the service manager holds the socket " + socketPath_ +
                 ", which is served in place of http.socket");
    return server_->ListenOn(handedOver, problem);
}

bool Agent::Listen() {
    std::string problem;
    AccessRules access;
    if (!ReadAccess(*config_.Now(), &access, &problem)) {
        log_.Say(problem);
        return false;
    }
    access_.Replace(std::move(access));
    questions_ = std::make_unique<Questions>(*store_, QuestionLimitsOf(*config_.Now()), reports_);
    events_ = std::make_unique<EventWays>(
        *questions_, tools_, *changes_,
        [this](std::string_view event) { return hunt_->Explain(event); });
    parts_ = std::unique_ptr<AgentParts>(new AgentParts{
        config_, *store_, log_, spool_, *admission_, *feeder_, sight_, *watch_, *questions_,
        tools_.ask, *followers_, *hunt_, *fleet_, *events_, wm::FormatUtc(wm::Clock().UtcNow()),
        static_cast<std::uint64_t>(std::time(nullptr)), version_});
    routes_ = std::make_unique<Routes>(*parts_, access_);
    server_ = std::make_unique<HttpServer>(
        *routes_,
        HttpLimits{config_->connections, config_->threads, config_->bodySize, config_->headerTime,
                   config_->idleTime},
        log_.connections);
    const bool listens =
        ListenForWeb(&problem) && ListenAtSocket(&problem) &&
        (config_->httpPort == 0 ||
         server_->ListenAt(static_cast<std::uint16_t>(config_->httpPort), &problem));
    if (!listens) {
        log_.Say(problem);
        return false;
    }
    server_->Start();
    if (webServer_)
        webServer_->Start();
    return true;
}

bool Agent::ListenForWeb(std::string* problem) {
    if (config_->webPort == 0)
        return true;
    webHost_ = std::make_unique<AgentWebHost>(*parts_, access_);
    webParts_ = std::unique_ptr<WebParts>(new WebParts{
        *store_, *questions_, *events_, tools_, *webHost_, config_->storePath, version_, true});
    webRoutes_ = std::make_unique<WebRoutes>(*webParts_);
    parts_->web = webRoutes_.get();
    webServer_ = std::make_unique<HttpServer>(*webRoutes_, webLimits, log_.webConnections);
    return webServer_->ListenAt(static_cast<std::uint16_t>(config_->webPort), problem);
}

void Agent::GoWays(std::optional<int> input) {
    for (const std::string& file : config_->tailFiles)
        ways_.Add(MakeTail(*parts_, file));
    if (input)
        ways_.Add(MakeInputWay(*parts_, *input));
    ways_.Start();
}

// The watchdog hears of the thread that feeds the store, not of this one: that this loop goes
// round says nothing.
void Agent::TellManager() {
    const std::uint64_t now = wm::Clock().TickCount64();
    if (!toldReady_ && feeder_->HasReplayed()) {
        toldReady_ = true;
        log_.Say("ready: " +
                 (socketPath_.empty() ? "port " + std::to_string(config_->httpPort) : socketPath_) +
                 ", store " + config_->storePath +
                 (webServer_ ? ", page 127.0.0.1:" + std::to_string(webServer_->Port()) : ""));
        NotifyManager("READY=1");
    } else if (!toldReady_ && now >= nextExtension_) {
        NotifyManager("EXTEND_TIMEOUT_USEC=30000000");
        nextExtension_ = now + extensionMs;
    }
    if (watchdogMs_ != 0 && now >= nextWatchdog_ && feeder_->SilentMs() < stalledMs) {
        NotifyManager("WATCHDOG=1");
        nextWatchdog_ = now + watchdogMs_ / 3;
    }
}

// Whatever is wrong is found ahead of the first change. Rules are read anew also where no key has
// changed: their files may have.
void Agent::Reload(const AgentReload& reload) {
    AgentConfig read;
    AccessRules access;
    std::string problem;
    if (!reload.read(&read, &problem) || !ReadAccess(read, &access, &problem)) {
        log_.Say(problem);
        log_.Say("the configuration can't be taken: nothing was changed");
        return;
    }
    const ReloadedConfig reloaded = ReloadConfig(*config_.Now(), read);
    access_.Replace(std::move(access));
    TakeReloaded(reloaded.config);
    log_.Say("the configuration was read anew: " + (reloaded.taken.empty()
                                                        ? "no key has changed"
                                                        : "changed are " + Listed(reloaded.taken)));
    if (!reloaded.restarts.empty())
        log_.Say("what is told of these keys needs a restart: " + Listed(reloaded.restarts));
}

void Agent::TakeReloaded(const AgentConfig& config) {
    config_.Replace(config);
    admission_->SetLimits(config.spoolMaxSize, Seconds(config.spoolHold), config.heldPerUser);
    spool_.SetLimits({config.idsKept, config.idsAge});
    questions_->SetLimits(QuestionLimitsOf(config));
    watch_->LookAtSizeSoon();
    hunt_->Use(config);
    fleet_->Use(config);
}

void Agent::Run(int stop, const AgentReload& reload) {
    constexpr int whileReplayingMs = 20;
    while (!log_.Interrupted() && !ways_.HasEnded()) {
        TellManager();
        pollfd waits[] = {{stop, POLLIN, 0}, {reload.descriptor, POLLIN, 0}};
        if (::poll(waits, 2, toldReady_ ? lookMs : whileReplayingMs) == 0 && toldReady_) {
            watch_->Look();
            notices_->Look();
        }
        std::uint64_t times = 0;
        if (waits[1].revents != 0 && ::read(reload.descriptor, &times, sizeof(times)) > 0)
            Reload(reload);
    }
    NotifyManager("STOPPING=1");
}

// In any case each step is taken, also where the start has come only a part of the way.
bool Agent::End() {
    if (fleet_)
        fleet_->Stop();
    if (followers_)
        followers_->Stop();
    ways_.BeginStop();
    if (questions_)
        questions_->Stop();
    for (HttpServer* const server : {webServer_.get(), server_.get()})
        if (server != nullptr)
            server->Stop();
    questions_.reset();
    ways_.Await(longestEnding);
    if (admission_)
        admission_->Stop();
    ways_.Stop();
    if (hunt_)
        hunt_->Stop();
    if (feeder_)
        feeder_->Stop(longestDrain);
    store_.Close();
    const bool isSettled = !feeder_ || feeder_->Settle();
    if (notices_)
        notices_->End();
    const Ledger left = feeder_ ? spool_.Account() : Ledger{};
    if (left.waiting > 0)
        log_.Say(std::to_string(left.waiting) + " event(s) wait in the spool for the next start");
    // Not what Close says: an answer that somebody had enough of is a failed read to the store.
    return store_.Emptied() && isSettled && left.waiting + left.waitingEnrichments == 0;
}

}  // namespace

AgentEnd RunAgent(const AgentConfig& config, const std::string& version, ISessionListener& listener,
                  wm::IErrorReportSink* reports, int stop, const WebTools& tools,
                  std::optional<int> input, const AgentReload& reload) {
    Agent agent(config, version, listener, reports, tools);
    const bool isRunning = agent.Start();
    if (isRunning) {
        agent.GoWays(input);
        agent.Run(stop, reload);
    }
    const bool isWhole = agent.End();
    return !isRunning ? AgentEnd::notBegun : isWhole ? AgentEnd::done : AgentEnd::left;
}

}  // namespace zel
