#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "agent/agentlog.h"
#include "agent/spool.h"
#include "hunt/correlator.h"
#include "hunt/rulefiles.h"
#include "hunt/ruleset.h"

namespace zel {

// What the watch is told of rules.
struct RuleWatchOptions {
    std::size_t memory = 0;     // bytes that what is counted over time may take
    std::uint64_t backlog = 0;  // bytes of events that are kept for it beyond the store's need
    bool givesHits = false;     // somebody takes hits as lines
};

// Tests what was accepted against rules, behind the intake and beside the feeder, on a thread of
// its own. Nobody waits for it. Any thread.
class RuleWatch {
public:
    // All outlive this. `onHits` is called behind each commit of hits.
    RuleWatch(Spool& spool, AgentLog& log, std::function<void()> onHits)
        : spool_(spool), log_(log), onHits_(std::move(onHits)) {}
    ~RuleWatch() { Stop(); }
    RuleWatch(const RuleWatch&) = delete;
    RuleWatch& operator=(const RuleWatch&) = delete;

    // These rules from now on; null: none. What was counted over time begins anew.
    void Use(std::shared_ptr<const RuleSet> rules, const RuleWatchOptions& options);
    // The spool has more.
    void Wake();
    // Ends the thread; what it has not come to is tested by the next process.
    void Stop();

    struct Counts {
        std::uint64_t rules = 0;
        std::uint64_t tested = 0;        // events
        std::uint64_t untested = 0;      // events that were gone, or no JSON
        std::uint64_t givenUp = 0;       // groups of what is counted over time, for want of memory
        std::uint64_t hitsNotGiven = 0;  // too many waited to be given to anybody
        std::array<std::uint64_t, std::size(ruleLevels)> hits{};
    };
    Counts Count() const;

private:
    using Clock = std::chrono::steady_clock;
    // What one set of rules is run with.
    struct Runner {
        Runner(std::shared_ptr<const RuleSet> set, std::size_t memory)
            : rules(std::move(set)), run(*rules), correlator(*rules, memory) {}
        const std::shared_ptr<const RuleSet> rules;
        RuleRun run;
        Correlator correlator;
    };

    void Main();
    void TakeUse();
    bool TestNext();
    void TestRecord(const SpooledRow::Record& record);
    void TakeHit(const Rule& rule, std::string_view eventKey, const std::string& line);
    bool HasFound() const { return !found_.enrichments.empty() || !found_.hits.empty(); }
    bool IsDue() const;
    void Commit();
    void TellHits();

    Spool& spool_;
    AgentLog& log_;
    const std::function<void()> onHits_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool hasMore_ = false, stopping_ = false, isNew_ = false;
    std::shared_ptr<const RuleSet> next_;
    RuleWatchOptions nextOptions_;
    std::thread thread_;

    // Of the thread.
    std::unique_ptr<Runner> runner_;
    RuleWatchOptions options_;
    std::int64_t at_ = 0, committed_ = 0;  // rows
    Delivery found_;
    Clock::time_point lastCommit_;
    Clock::time_point lastTold_;
    std::uint64_t hitsTold_ = 0;

    std::atomic<std::uint64_t> rules_{0}, tested_{0}, unreadable_{0}, givenUp_{0}, hitsNotGiven_{0};
    std::array<std::atomic<std::uint64_t>, std::size(ruleLevels)> hits_{};
};

}  // namespace zel
