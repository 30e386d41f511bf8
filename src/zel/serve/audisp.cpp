#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "connection/agentrequest.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// A plugin of the audit dispatcher, which hands the kernel's records to its standard input and
// waits while nobody reads them: a machine whose audit is told to stop everything then stands
// still. So one thread does nothing but read, and what the service does not take for now waits in
// memory up to a limit; beyond that the oldest goes, and is told. The service cannot be the plugin
// itself, since the dispatcher starts its plugins.
//
// A batch ends where an event does, as far as the stamps of its lines tell: each request is read by
// itself, and half an event in each of two would be two events.

namespace zel {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t batchBytes = 64U << 10;
constexpr std::size_t longestLine = 1U << 20;  // what is longer is no record of the kernel's
constexpr int idleMs = 500;                    // until a batch goes that is not full
constexpr auto retryPause = milliseconds(1000);
constexpr auto lastTry = std::chrono::seconds(10);  // behind the end of the input
constexpr auto betweenWords = std::chrono::seconds(10);

std::uint64_t LinesOf(std::string_view text) {
    return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

// "audit(1481076984.827:385)": what the lines of one event share.
std::string_view StampOf(std::string_view line) {
    const std::size_t begin = line.find("audit(");
    const std::size_t end = line.find(')', begin);
    return begin == line.npos || end == line.npos ? std::string_view()
                                                  : line.substr(begin, end - begin);
}

// Batches on their way, and the thread that brings them to the service.
class AuditQueue {
public:
    explicit AuditQueue(std::size_t mostBytes) : mostBytes_(mostBytes) {
        thread_ = std::thread([this] { Main(); });
    }

    void Put(std::string batch) {
        const std::lock_guard hold(mutex_);
        bytes_ += batch.size();
        batches_.push_back(std::move(batch));
        while (bytes_ > mostBytes_ && batches_.size() > 1) {
            dropped_ += LinesOf(batches_.front());
            bytes_ -= batches_.front().size();
            batches_.pop_front();
        }
        changed_.notify_all();
    }

    // Brings what waits, for so long. How many lines never came there.
    std::uint64_t End(std::chrono::seconds longest) {
        {
            const std::lock_guard hold(mutex_);
            isEnding_ = true;
            until_ = Clock::now() + longest;
        }
        changed_.notify_all();
        thread_.join();
        for (const std::string& batch : batches_)
            dropped_ += LinesOf(batch);
        TellDropped();
        return told_;
    }

private:
    bool IsOver() {
        const std::lock_guard hold(mutex_);
        return isEnding_ && Clock::now() >= until_;
    }

    void Main() {
        for (;;) {
            std::string batch;
            {
                std::unique_lock hold(mutex_);
                changed_.wait(hold, [&] { return isEnding_ || !batches_.empty(); });
                if (batches_.empty() || (isEnding_ && Clock::now() >= until_))
                    return;
                batch = std::move(batches_.front());
                batches_.pop_front();
                bytes_ -= batch.size();
            }
            if (Bring(batch)) {
                TellDropped();
                continue;
            }
            std::unique_lock hold(mutex_);
            bytes_ += batch.size();
            batches_.push_front(std::move(batch));
            changed_.wait_for(hold, isEnding_ ? retryPause / 5 : retryPause);
        }
    }

    bool Bring(const std::string& batch) {
        AgentRequest request(AgentSocket(), [this] { return IsOver(); });
        std::string answer;
        constexpr std::size_t longestAnswer = 1U << 16;
        const bool isTaken = Succeeded(request.Send("POST", "/v1/events", batch)) &&
                             Succeeded(request.ReadAll(longestAnswer, &answer));
        if (!isTaken && Clock::now() >= nextWord_) {
            Say("records wait: " + request.Problem());
            nextWord_ = Clock::now() + betweenWords;
        }
        return isTaken;
    }

    void TellDropped() {
        const std::lock_guard hold(mutex_);
        if (dropped_ > 0)
            Say(std::to_string(dropped_) + " audit record(s) were dropped: the service was away");
        told_ += std::exchange(dropped_, 0);
    }

    const std::size_t mostBytes_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> batches_;
    std::size_t bytes_ = 0;
    std::uint64_t dropped_ = 0, told_ = 0;  // lines
    bool isEnding_ = false;
    Clock::time_point until_, nextWord_;
    std::thread thread_;
};

// Cuts the input into batches.
class AuditBatches {
public:
    explicit AuditBatches(AuditQueue& queue) : queue_(queue) {}

    void Take(std::string_view bytes) {
        line_.append(bytes);
        std::size_t begin = 0;
        for (std::size_t end; (end = line_.find('\n', begin)) != line_.npos; begin = end + 1)
            TakeLine(std::string_view(line_).substr(begin, end + 1 - begin));
        line_.erase(0, begin);
        if (line_.size() > longestLine)
            line_.clear();
    }

    void Flush() {
        if (!batch_.empty())
            queue_.Put(std::exchange(batch_, {}));
    }

    void End() {
        if (!line_.empty())
            TakeLine(line_ + "\n");
        Flush();
    }

private:
    void TakeLine(std::string_view line) {
        const bool isFull = batch_.size() >= batchBytes && StampOf(line) != stamp_;
        if (isFull || batch_.size() >= longestLine)
            Flush();
        stamp_ = StampOf(line);
        batch_.append(line);
    }

    AuditQueue& queue_;
    std::string line_;  // that lacks its end
    std::string batch_;
    std::string stamp_;  // of its last line
};

void ReadRecords(AuditBatches& batches) {
    std::string bytes(batchBytes, '\0');
    while (!Interrupted()) {
        pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {InterruptDescriptor(), POLLIN, 0}};
        const int ready = ::poll(waits, 2, idleMs);
        if (ready == 0)
            batches.Flush();
        if (ready <= 0 || waits[0].revents == 0)
            continue;
        const ssize_t got = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        batches.Take(std::string_view(bytes).substr(0, static_cast<std::size_t>(got)));
    }
}

}  // namespace

// The dispatcher sends SIGHUP when its own configuration is to be read again.
int RunAudisp(const AudispOptions& options) {
    if (AgentSocket().empty()) {
        Say("no agent is named: --socket or ZEL_SOCKET names its socket");
        return exitCode::noStore;
    }
    ::signal(SIGHUP, SIG_IGN);
    AuditQueue queue(static_cast<std::size_t>(options.queueMegabytes) << 20);
    AuditBatches batches(queue);
    ReadRecords(batches);
    batches.End();
    return queue.End(lastTry) > 0 ? exitCode::losses : exitCode::done;
}

}  // namespace zel
