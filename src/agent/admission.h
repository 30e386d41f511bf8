#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/agentlog.h"
#include "agent/spool.h"
#include "zelstore/ieventstore.h"

namespace zel {

enum class Verdict {
    taken,   // it is on the disk
    noRoom,  // there was no room for as long as it was held; nothing of it was taken
};

// Takes deliveries into the spool, all that wait in one commit. While there is no room they are
// held, each for so long, and then refused. Any thread.
class Admission {
public:
    using Done = std::function<void(Verdict)>;

    // What a commit has taken: each item that is no duplicate, with its receive-time key. They
    // stay as they are.
    using Taken = std::vector<std::shared_ptr<const Delivery>>;

    // All outlive this. `onTaken` is called behind each commit, one after the other.
    Admission(Spool& spool, ZEL::IEventStore7& store, AgentLog& log, std::uint64_t mostBytes,
              std::chrono::seconds hold, std::uint64_t mostHeld,
              std::function<void(const Taken&)> onTaken);
    ~Admission() { Stop(); }
    Admission(const Admission&) = delete;
    Admission& operator=(const Admission&) = delete;

    // Once the spool is open: receive-time keys go on behind those of earlier processes.
    void Prepare();
    void Start();
    // For what comes from now on.
    void SetLimits(std::uint64_t mostBytes, std::chrono::seconds hold, std::uint64_t mostHeld) {
        mostBytes_ = mostBytes;
        hold_ = hold;
        mostHeld_ = mostHeld;
    }
    // Refuses what waits and all that comes.
    void Stop();
    // `done` is called once, on the thread that commits: it must not wait. The delivery is not to
    // be touched until then.
    void Submit(std::shared_ptr<Delivery> delivery, Done done);

    // Whether the volumes have room; told by who looks at them.
    void SetDiskRoom(bool hasRoom);
    bool HasDiskRoom() const noexcept { return hasDiskRoom_; }
    // Whether a delivery would be taken now.
    bool HasRoom() const;
    std::uint64_t Waiting() const;

private:
    using Clock = std::chrono::steady_clock;
    struct Waiter {
        std::shared_ptr<Delivery> delivery;
        Done done;
        Clock::time_point until;
    };
    using Waiters = std::deque<Waiter>;

    void Main();
    Waiters TakeExpiredLocked();
    void TakeCrowdLocked(Waiters* taken);
    bool Commit(const Waiters& waiters);
    std::string NextReceiveKey();

    Spool& spool_;
    ZEL::IEventStore7& store_;
    AgentLog& log_;
    std::atomic<std::uint64_t> mostBytes_;
    std::atomic<std::uint64_t> mostHeld_;  // of one user
    std::atomic<std::chrono::seconds> hold_;
    const std::function<void(const Taken&)> onTaken_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Waiters waiters_;
    bool stopping_ = true;
    std::atomic<bool> hasDiskRoom_{true};
    std::atomic<bool> works_{true};  // the last commit did
    std::thread thread_;
    // Of the last receive-time key, of the thread alone.
    std::string lastTime_;
    std::uint32_t lastSequence_ = 0;
};

}  // namespace zel
