#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/agentlog.h"
#include "agent/spool.h"

namespace zel {

// Who is told of hits. All empty: nobody.
struct AlertWays {
    std::vector<std::string> command;  // a path and arguments
    std::string socket;                // of datagrams
    std::uint64_t atOnce = 1;          // commands
    std::uint64_t perSecond = 1;
    std::uint64_t seconds = 30;  // that a command may take

    bool Any() const noexcept { return !command.empty() || !socket.empty(); }
};

// Tells hits that stand in the spool, each as a line of JSON, on a thread of its own: nobody waits
// for it but what it has to tell. A hit that was being told when the process was killed is told
// again. Any thread.
class Alerts {
public:
    // Both outlive this.
    Alerts(Spool& spool, AgentLog& log) : spool_(spool), log_(log) {}
    ~Alerts() { Stop(); }
    Alerts(const Alerts&) = delete;
    Alerts& operator=(const Alerts&) = delete;

    // These from now on. Hits that wait while there is nobody are forgotten.
    void Use(const AlertWays& ways);
    // The spool has more.
    void Wake();
    // Commands that run are ended soon; their hits are told by the next process.
    void Stop();

    struct Counts {
        std::uint64_t told = 0;    // hits
        std::uint64_t failed = 0;  // tries: of a hit by the command, or by the socket
    };
    Counts Count() const { return {told_, failed_}; }

private:
    void Main();
    bool TellNext();
    void SendAll(const SpooledRow& row, const AlertWays& ways);
    // False when it was ended on the way.
    bool RunAll(const SpooledRow& row, const AlertWays& ways);
    bool RunSome(const SpooledRow& row, std::size_t first, std::size_t count,
                 const AlertWays& ways);
    bool IsStopping();
    // Waits that long; true when the thread is to end.
    bool WaitOrStop(std::uint64_t milliseconds);

    Spool& spool_;
    AgentLog& log_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool hasMore_ = false, stopping_ = false;
    AlertWays ways_;
    std::thread thread_;
    std::int64_t at_ = 0;  // the last row that was told; of the thread
    std::atomic<std::uint64_t> told_{0}, failed_{0};
};

}  // namespace zel
