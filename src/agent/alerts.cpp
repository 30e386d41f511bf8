#include "agent/alerts.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <utility>

#include "agent/alertcommand.h"

// Hits wait in the spool, so they outlive the process, and are dropped there once they were told.
// A command or a socket that fails is told and counted; there is no second try, as the next hit
// would wait for it. Commands go in groups: as many as may run at once are begun, and the next
// group when all of them have ended and the second is over that they have used up.

namespace zel {

namespace {

using Clock = std::chrono::steady_clock;

// One datagram; never waits.
bool SendDatagram(int socket, const std::string& path, std::string_view line, int* error) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    *error = ENAMETOOLONG;
    if (path.size() >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    const ssize_t sent = ::sendto(socket, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                                  reinterpret_cast<const sockaddr*>(&address), size);
    *error = errno;
    return sent == static_cast<ssize_t>(line.size());
}

}  // namespace

void Alerts::Use(const AlertWays& ways) {
    const std::lock_guard hold(mutex_);
    ways_ = ways;
    hasMore_ = true;
    if (!thread_.joinable() && (ways.Any() || spool_.Account().waitingHits > 0))
        thread_ = std::thread([this] { Main(); });
    changed_.notify_all();
}

void Alerts::Wake() {
    const std::lock_guard hold(mutex_);
    hasMore_ = true;
    changed_.notify_all();
}

void Alerts::Stop() {
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

bool Alerts::IsStopping() {
    const std::lock_guard hold(mutex_);
    return stopping_;
}

bool Alerts::WaitOrStop(std::uint64_t milliseconds) {
    std::unique_lock hold(mutex_);
    return changed_.wait_for(hold, std::chrono::milliseconds(milliseconds),
                             [this] { return stopping_; });
}

void Alerts::Main() {
    std::unique_lock hold(mutex_);
    while (!stopping_) {
        hasMore_ = false;
        hold.unlock();
        while (TellNext()) {
        }
        hold.lock();
        changed_.wait(hold, [this] { return stopping_ || hasMore_; });
    }
}

bool Alerts::TellNext() {
    std::string problem;
    const std::optional<SpooledRow> row = spool_.Next(at_, &problem, SpoolKind::hits);
    AlertWays ways;
    {
        const std::lock_guard hold(mutex_);
        ways = ways_;
        if (stopping_)
            return false;
    }
    if (row) {
        if (!ways.socket.empty())
            SendAll(*row, ways);
        if (!ways.command.empty() && !RunAll(*row, ways))
            return false;
        at_ = row->number;
        told_ += ways.Any() ? row->records.size() : 0;
        spool_.DropOthers(SpoolKind::hits, at_, &problem);
    }
    if (!problem.empty())
        log_.SaySeldom(problem);
    return row.has_value();
}

void Alerts::SendAll(const SpooledRow& row, const AlertWays& ways) {
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (const SpooledRow::Record& record : row.records) {
        int error = errno;
        if (socket >= 0 && SendDatagram(socket, ways.socket, record.record, &error))
            continue;
        ++failed_;
        log_.SaySeldom("hunt.alert_socket: " + std::string(std::strerror(error)));
    }
    if (socket >= 0)
        ::close(socket);
}

bool Alerts::RunAll(const SpooledRow& row, const AlertWays& ways) {
    const std::size_t group = static_cast<std::size_t>(std::min(ways.atOnce, ways.perSecond));
    for (std::size_t first = 0; first < row.records.size(); first += group) {
        const std::size_t count = std::min(group, row.records.size() - first);
        const Clock::time_point begin = Clock::now();
        if (!RunSome(row, first, count, ways))
            return false;
        const auto due = begin + std::chrono::milliseconds(1000 * count / ways.perSecond);
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now()).count();
        if (left > 0 && WaitOrStop(static_cast<std::uint64_t>(left)) &&
            first + count < row.records.size())
            return false;
    }
    return true;
}

bool Alerts::RunSome(const SpooledRow& row, std::size_t first, std::size_t count,
                     const AlertWays& ways) {
    std::vector<AlertCommand> running;
    for (std::size_t i = first; i < first + count; ++i)
        running.emplace_back(ways.command, row.records[i].record);
    const auto until = Clock::now() + std::chrono::seconds(static_cast<std::int64_t>(ways.seconds));
    bool isStopped = false;
    for (AlertCommand& command : running) {
        constexpr std::uint64_t lookMs = 100;
        while (!command.HasEnded(lookMs) && Clock::now() < until && !isStopped)
            isStopped = IsStopping();
        std::string problem;
        if (command.Finish(&problem) || isStopped)
            continue;
        ++failed_;
        log_.SaySeldom("hunt.alert_command: " + problem);
    }
    return !isStopped;
}

}  // namespace zel
