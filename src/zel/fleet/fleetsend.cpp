#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "agent/following/followplace.h"
#include "common/hostservices.h"
#include "common/utctime.h"
#include "connection/agentrequest.h"
#include "connection/storefolders.h"
#include "connection/storesession.h"
#include "fleet/fleettime.h"
#include "fleet/hostidentifier.h"
#include "fleet/sending/backfill.h"
#include "fleet/sending/enrichmentsending.h"
#include "fleet/sending/eventsending.h"
#include "fleet/sending/rowdelivery.h"
#include "fleet/sending/storepast.h"
#include "records/timearg.h"
#include "zel/commands.h"
#include "zel/fleet/fleettarget.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"

// Sends what a store's directory holds, beside whoever writes it. A process lists a store's folders
// once, so that with --follow each look is a process of its own; what it has come to stands in the
// file of the position.

namespace zel {

using namespace fleet;
using std::chrono::milliseconds;
using SystemPoint = std::chrono::sys_time<milliseconds>;

namespace {

// A row of this age is in the store, and no other will come ahead of it, unless somebody sets the
// clock back by more.
constexpr auto settlingTime = std::chrono::minutes(2);
constexpr unsigned triesOfOnce = 5;
constexpr int rowsOfStep = 10000;
constexpr std::string_view beginOfTime = "0000-01-01T00:00:00.000Z";

SystemPoint Now() {
    return SystemPoint(
        milliseconds(MillisecondsOf(wm::FormatUtc(wm::Clock().UtcNow())).value_or(0)));
}

struct SendingTask {
    FleetAddress address;
    std::string directory;
    std::string since;  // where it begins in place of the position; empty: there
    BatchLimits limits;
    DeliveryOptions delivery;
    SendingState state;
    std::string stateFile;
};

bool TakeTime(const char* flag, const std::string& text, std::string* time) {
    if (text.empty())
        return true;
    const TimeArgument argument = ParseTimeArgument(text, Now());
    if (!argument.ok)
        Say(std::string(flag) + ": " + argument.error);
    *time = argument.text;
    return argument.ok;
}

bool Prepare(const FleetOptions& options, SendingTask* task) {
    if (!AgentSocket().empty()) {
        Say("an agent sends by itself, as [fleet] of its configuration says; to send what is in a "
            "directory, name it with --store");
        return false;
    }
    const auto address = AddressOf(options);
    if (!address || !TakeTime("--since", options.since, &task->since))
        return false;
    task->address = *address;
    task->state.host = HostOf(options);
    task->state.fleet = address->url + "/" + address->database;
    task->limits = {options.batchRows, options.batchBytes};
    task->delivery.rowsPerSecond = options.rate;
    task->delivery.packs = !address->isLocal;
    task->delivery.tries = triesOfOnce;
    if (options.firstPauseMs != 0)
        task->delivery.firstPause = milliseconds(options.firstPauseMs);
    return !task->state.host.empty();
}

bool FindPosition(const FleetOptions& options, SendingTask* task) {
    if (!FindStore(StoreNeed::reading, &task->directory))
        return false;
    task->stateFile =
        !options.position.empty()
            ? options.position
            : task->directory + "/" + StateFileName(task->state.fleet, task->state.host);
    return true;
}

// Folders are purged whole, the oldest first.
void TellPurged(const SendingTask& task) {
    constexpr std::size_t dateLength = 10;
    const std::string from = PositionOf(task.state.place);
    for (const StoreFolder& folder : ListStore(task.directory, false).folders)
        if (std::string_view(folder.Kind()) == "events") {
            if (folder.Date() > from.substr(0, dateLength))
                Say("what was received from " + from + " on and purged before " + folder.Date() +
                    " was not sent: nobody knows how much that is");
            return;
        }
}

int TellEnd(const RowDelivery::Sight& sight, const SendingState& before, bool isWhole,
            std::chrono::steady_clock::time_point begin) {
    const std::uint64_t sent = sight.state.sent - before.sent;
    const std::uint64_t refused = sight.state.refused - before.refused;
    const std::uint64_t missed = sight.state.missed - before.missed;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    char time[64];
    std::snprintf(time, sizeof(time), ", %.2f s, %.0f rows/s", seconds,
                  seconds > 0 ? static_cast<double>(sent) / seconds : 0.0);
    if (sent + refused + missed != 0 || !isWhole)
        Say(std::to_string(sent) + " row(s) sent, " + std::to_string(refused) + " refused, " +
            std::to_string(missed) + " missed" + time);
    if (Interrupted())
        return Terminated() ? exitCode::done : exitCode::interrupted;
    if (sight.hasEnded)
        return exitCode::noStore;
    return isWhole && refused + missed == 0 ? exitCode::done : exitCode::losses;
}

// What sends, with all that it holds.
struct Sender {
    explicit Sender(SendingTask& task)
        : file(task.stateFile),
          refused(task.stateFile + ".refused"),
          delivery(task.address, task.delivery, task.state, file, refused, Terminal()) {}

    const StateFile file;
    RefusedRows refused;
    RowDelivery delivery;
};

bool LoadState(SendingTask& task) {
    std::string problem;
    bool isThere = false;
    const StateFile file(task.stateFile);
    if (!file.Load(&task.state, &isThere, &problem)) {
        Say(problem);
        return false;
    }
    if (!task.since.empty())
        task.state.place = PlaceAtTime(task.since);
    else if (!task.state.place.empty())
        TellPurged(task);
    // A place that can't be kept is better known ahead of all work.
    if (file.Save(task.state, &problem))
        return true;
    Say(problem);
    return false;
}

int SendOnce(SendingTask task) {
    if (!LoadState(task))
        return exitCode::noStore;
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::reading))
        return exitCode::noStore;
    const auto begin = std::chrono::steady_clock::now();
    const SendingState before = task.state;
    const std::string safeUntil = wm::FormatUtc(wm::ToSystemTime(Now() - settlingTime));
    StorePast past;
    Sender sender(task);
    EventSending events({*store, past, sender.delivery, Terminal()}, before.host, task.limits,
                        before.place.empty() ? PlaceAtTime(beginOfTime) : before.place, rowsOfStep);
    EnrichmentSending enrichments(task.directory, before.host, task.limits, before.folders,
                                  sender.delivery, Terminal());
    const bool isSent = events.Round(safeUntil) && enrichments.Round();
    const RowDelivery::Sight sight = sender.delivery.Look();
    sender.delivery.Stop();
    const bool isRead = store.Close();
    const bool isWhole = isSent && isRead && !events.HasUnread() && enrichments.Unread() == 0;
    return TellEnd(sight, before, isWhole, begin);
}

// Until the child has ended, which a signal to this process ends too.
int AwaitChild(pid_t child) {
    constexpr int lookMs = 50;
    int status = 0;
    bool isTold = false;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (Interrupted() && !isTold) {
            ::kill(child, SIGTERM);
            isTold = true;
        }
        ::poll(nullptr, 0, lookMs);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : exitCode::noStore;
}

// Waits for this host's turn in the next interval.
void AwaitTurn(const std::string& host, milliseconds every) {
    const auto now = Now().time_since_epoch();
    const auto turn =
        milliseconds(static_cast<std::int64_t>(TurnOf(host) * static_cast<double>(every.count())));
    const auto next = every - (now - turn) % every;
    pollfd wait{InterruptDescriptor(), POLLIN, 0};
    ::poll(&wait, 1, static_cast<int>(next.count()));
}

int SendForEver(SendingTask task, milliseconds every) {
    task.delivery.tries = 0;
    int worst = exitCode::done;
    while (!Interrupted()) {
        const pid_t parent = ::getpid();
        const pid_t child = ::fork();
        if (child < 0) {
            Say("no process can be begun to look at the store");
            return exitCode::noStore;
        }
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            std::_Exit(::getppid() == parent ? SendOnce(task) : exitCode::noStore);
        }
        const int code = AwaitChild(child);
        if (code == exitCode::noStore && !Interrupted())
            return code;
        if (code == exitCode::losses)
            worst = code;
        task.since.clear();
        if (!Interrupted())
            AwaitTurn(task.state.host, every);
    }
    return Terminated() ? worst : exitCode::interrupted;
}

}  // namespace

int RunFleetSend(const FleetOptions& options) {
    SendingTask task;
    if (!Prepare(options, &task))
        return exitCode::usage;
    if (!FindPosition(options, &task))
        return exitCode::noStore;
    if (options.follow)
        return SendForEver(std::move(task), std::chrono::seconds(options.everySeconds));
    return SendOnce(std::move(task));
}

int RunFleetBackfill(const FleetOptions& options) {
    SendingTask task;
    std::string until;
    if (!Prepare(options, &task) || !TakeTime("--until", options.until, &until))
        return exitCode::usage;
    if (!FindPosition(options, &task))
        return exitCode::noStore;
    std::string since = task.since;
    task.since.clear();
    StoreSession store(Terminal());
    if (!LoadState(task) || !store.Open(StoreNeed::reading))
        return exitCode::noStore;
    const auto begin = std::chrono::steady_clock::now();
    const SendingState before = task.state;
    Sender sender(task);
    const bool isSent =
        Backfill(*store, before.host, since, until, task.limits, sender.delivery, Terminal());
    const RowDelivery::Sight sight = sender.delivery.Look();
    sender.delivery.Stop();
    const bool isRead = store.Close();
    return TellEnd(sight, before, isSent && isRead, begin);
}

}  // namespace zel
