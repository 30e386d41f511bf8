#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "agent/following/followplace.h"
#include "common/hostservices.h"
#include "common/utctime.h"
#include "connection/agentrequest.h"
#include "connection/storefolders.h"
#include "connection/storesession.h"
#include "fleet/fleettime.h"
#include "fleet/hostidentifier.h"
#include "fleet/sending/backfill.h"
#include "fleet/sending/storepast.h"
#include "fleet/sending/storesending.h"
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

constexpr unsigned triesOfOnce = 5;
constexpr int rowsOfStep = 10000;

SystemPoint Now() {
    return SystemPoint(
        milliseconds(MillisecondsOf(wm::FormatUtc(wm::Clock().UtcNow())).value_or(0)));
}

// A day, as an end, with all of it.
bool TakeTime(const char* flag, const std::string& text, bool isEnd, std::string* time) {
    if (text.empty())
        return true;
    const TimeArgument argument = ParseTimeArgument(text, Now());
    if (!argument.ok)
        Say(std::string(flag) + ": " + argument.error);
    *time = isEnd && !argument.endOfDay.empty() ? argument.endOfDay : argument.text;
    return argument.ok;
}

bool Prepare(const FleetOptions& options, SendingSetup* setup) {
    if (!AgentSocket().empty()) {
        Say("an agent sends by itself, as [fleet] of its configuration says; to send what is in a "
            "directory, name it with --store");
        return false;
    }
    const auto address = AddressOf(options);
    if (!address || !TakeTime("--since", options.since, false, &setup->since))
        return false;
    setup->address = *address;
    setup->host = HostOf(options);
    setup->limits = {options.batchRows, options.batchBytes};
    setup->rowsOfStep = rowsOfStep;
    setup->delivery.rowsPerSecond = options.rate;
    setup->delivery.packs = !address->isLocal;
    setup->delivery.tries = triesOfOnce;
    if (options.firstPauseMs != 0)
        setup->delivery.firstPause = milliseconds(options.firstPauseMs);
    return !setup->host.empty();
}

bool FindPosition(const FleetOptions& options, SendingSetup* setup) {
    if (!FindStore(StoreNeed::reading, &setup->directory))
        return false;
    setup->stateFile = !options.position.empty()
                           ? options.position
                           : setup->directory + "/" + StateFileName(setup->address, setup->host);
    return true;
}

// Folders are purged whole, the oldest first.
void TellPurged(const SendingSetup& setup, const std::string& place) {
    constexpr std::size_t dateLength = 10;
    const std::string from = PositionOf(place);
    const bool hasSent = !from.starts_with("0000");
    if (!hasSent || !setup.since.empty())
        return;
    for (const StoreFolder& folder : ListStore(setup.directory, false).folders)
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

// What a round is made with, in the order in which it is.
struct Sending {
    StoreSession store{Terminal()};
    StorePast past;
    std::unique_ptr<StoreSending> way;
    const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();

    bool Open(const SendingSetup& setup) {
        std::string problem;
        if (!store.Open(StoreNeed::reading))
            return false;
        way = StoreSending::Open(setup, *store, past, Terminal(), &problem);
        if (!way)
            Say(problem);
        return way != nullptr;
    }
    // A step that ends since a batch is full leaves a failure to read behind that says nothing; one
    // that says something was told by the step.
    int Close(bool isSent) {
        const RowDelivery::Sight sight = way->Look();
        way->End();
        bool isRead = true;
        for (const DatabaseError& error : store.TakeDatabaseErrors()) {
            if (error.lastResult == static_cast<std::int32_t>(ZEL::hr::fail))
                continue;
            Say(error.Text());
            isRead = false;
        }
        isRead = store.Close() && isRead;
        return TellEnd(sight, way->Before(), isSent && isRead && !way->HasUnread(), begin);
    }
};

// A row of that age is in the store, and no other will come ahead of it, unless somebody sets the
// clock back by more.
int SendOnce(const SendingSetup& setup, std::chrono::seconds settling) {
    Sending sending;
    if (!sending.Open(setup))
        return exitCode::noStore;
    TellPurged(setup, sending.way->Before().place);
    const std::string safeUntil = wm::FormatUtc(wm::ToSystemTime(Now() - settling));
    return sending.Close(sending.way->SendEvents(safeUntil) && sending.way->SendEnrichments());
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

int SendForEver(SendingSetup setup, const FleetOptions& options) {
    const auto every = std::chrono::seconds(options.everySeconds);
    const auto settling = std::chrono::seconds(options.settlingSeconds);
    setup.delivery.tries = 0;
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
            std::_Exit(::getppid() == parent ? SendOnce(setup, settling) : exitCode::noStore);
        }
        const int code = AwaitChild(child);
        if (code == exitCode::noStore && !Interrupted())
            return code;
        if (code == exitCode::losses)
            worst = code;
        setup.since.clear();
        if (!Interrupted())
            AwaitTurn(setup.host, every);
    }
    return Terminated() ? worst : exitCode::interrupted;
}

}  // namespace

int RunFleetSend(const FleetOptions& options) {
    SendingSetup setup;
    if (!Prepare(options, &setup))
        return exitCode::usage;
    if (!FindPosition(options, &setup))
        return exitCode::noStore;
    if (options.follow)
        return SendForEver(setup, options);
    return SendOnce(setup, std::chrono::seconds(options.settlingSeconds));
}

int RunFleetBackfill(const FleetOptions& options) {
    SendingSetup setup;
    std::string until;
    if (!Prepare(options, &setup) || !TakeTime("--until", options.until, true, &until))
        return exitCode::usage;
    if (!FindPosition(options, &setup))
        return exitCode::noStore;
    const std::string since = std::exchange(setup.since, "");
    Sending sending;
    if (!sending.Open(setup))
        return exitCode::noStore;
    return sending.Close(Backfill(*sending.store, setup.host, since, until, setup.limits,
                                  sending.way->Delivery(), Terminal()));
}

}  // namespace zel
