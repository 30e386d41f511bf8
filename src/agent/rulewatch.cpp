#include "agent/rulewatch.h"

#include <algorithm>
#include <numeric>

#include "hunt/hittexts.h"
#include "zelstore/keys/keyformat.h"

// The watch walks the spool behind the intake. How far it has come stands in the spool as well, in
// one commit with what it found, so a process that is killed loses no hit and stores none twice.
// Rows that the store has and the watch has not are kept for it, as far as `backlog` goes; what is
// dropped ahead of it is counted as untested. So the intake never waits for rules.
//
// The key of a hit's enrichment is made of the event's and the rule: an event that comes again has
// it again, and its hit takes the place of the first. Lines for others carry a number that is made
// in the same way.

namespace zel {

namespace {

using std::chrono::milliseconds;

constexpr auto betweenCommits = milliseconds(100);
constexpr auto betweenPositions = milliseconds(2000);
constexpr auto betweenWords = std::chrono::seconds(60);
constexpr std::size_t mostFound = 500;        // hits of one commit
constexpr std::uint64_t mostWaiting = 10000;  // hits that wait to be given to somebody
constexpr const char* positionMark = "rules tested";

// FNV-1a: the same in each process.
std::uint64_t NumberOf(std::string_view first, std::string_view second) {
    std::uint64_t number = 0xCBF29CE484222325U;
    for (const std::string_view text : {first, std::string_view("\n"), second})
        for (const char letter : text)
            number = (number ^ static_cast<unsigned char>(letter)) * 0x100000001B3U;
    return number;
}

// Behind those numbered by a counter, and ahead of those numbered by the clock of today.
std::string SuffixOf(const Rule& rule) {
    constexpr std::uint64_t earlierThanToday = 1000000000000000U;  // microseconds, in 2001
    const std::uint64_t number = NumberOf("", StartOfMark(rule)) % earlierThanToday;
    return ZEL::TimedEnrichmentSuffix(static_cast<std::int64_t>(number), true);
}

std::string Numbered(std::uint64_t number, const std::string& hit) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (int shift = 60; shift >= 0; shift -= 4)
        hex += digits[number >> static_cast<unsigned>(shift) & 0xFU];
    std::string line = R"({"hit":")" + hex + "\"," + hit.substr(1);
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::replace(line.begin(), line.end(), '\r', ' ');
    return line;
}

}  // namespace

void RuleWatch::Use(std::shared_ptr<const RuleSet> rules, const RuleWatchOptions& options) {
    const std::lock_guard hold(mutex_);
    rules_ = rules ? rules->Rules().size() : 0;
    next_ = std::move(rules);
    nextOptions_ = options;
    isNew_ = hasMore_ = true;
    if (!thread_.joinable()) {
        // Ahead of the first drop, so that nothing goes that it has not seen.
        TakeUse();
        thread_ = std::thread([this] { Main(); });
    }
    changed_.notify_all();
}

void RuleWatch::Wake() {
    const std::lock_guard hold(mutex_);
    hasMore_ = true;
    changed_.notify_all();
}

void RuleWatch::Stop() {
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

RuleWatch::Counts RuleWatch::Count() const {
    Counts counts{rules_,   tested_,       unreadable_ + spool_.DroppedUnseen(),
                  givenUp_, hitsNotGiven_, {}};
    std::copy(hits_.begin(), hits_.end(), counts.hits.begin());
    return counts;
}

// Under the lock. Without rules nothing is kept: rules that come later begin with what stands in
// the spool then.
void RuleWatch::TakeUse() {
    isNew_ = false;
    const bool wasIdle = runner_ == nullptr;
    options_ = nextOptions_;
    runner_ = next_ ? std::make_unique<Runner>(std::move(next_), options_.memory) : nullptr;
    next_ = nullptr;
    if (!runner_) {
        spool_.KeepBehind(INT64_MAX, 0);
        return;
    }
    if (wasIdle) {
        const std::vector<SpoolMark> mark = spool_.Marks(positionMark);
        committed_ =
            mark.empty() ? spool_.SettledRow() : std::strtoll(mark[0].value.c_str(), nullptr, 10);
        at_ = std::max(at_, committed_);  // what rules before these have seen is not seen again
    }
    spool_.KeepBehind(committed_, options_.backlog);
}

void RuleWatch::Main() {
    std::unique_lock hold(mutex_);
    while (!stopping_) {
        hasMore_ = false;
        if (isNew_)
            TakeUse();
        hold.unlock();
        while (runner_ && !IsDue() && TestNext()) {
        }
        if (IsDue())
            Commit();
        TellHits();
        hold.lock();
        const auto mayGoOn = [&] { return stopping_ || hasMore_; };
        if (HasFound() || at_ != committed_)
            changed_.wait_for(hold, betweenCommits, mayGoOn);
        else
            changed_.wait(hold, mayGoOn);
    }
    hold.unlock();
    Commit();
}

bool RuleWatch::TestNext() {
    std::string problem;
    const std::optional<SpooledRow> row = spool_.Next(at_, &problem);
    if (!problem.empty())
        log_.SaySeldom(problem);
    if (!row)
        return false;
    for (const SpooledRow::Record& record : row->records)
        TestRecord(record);
    at_ = row->number;
    const std::lock_guard hold(mutex_);
    hasMore_ = true;
    return !stopping_ && !isNew_;
}

void RuleWatch::TestRecord(const SpooledRow::Record& record) {
    ++tested_;
    if (!runner_->run.Test(record.record)) {
        ++unreadable_;
        return;
    }
    if (runner_->run.Hits().empty())
        return;
    const std::vector<Rule>& rules = runner_->rules->Rules();
    for (const std::uint32_t number : runner_->run.Hits()) {
        const Rule& rule = rules[number];
        if (runner_->correlator.Hides(number))
            continue;
        const std::string line =
            !options_.givesHits
                ? ""
                : Numbered(NumberOf(record.key, StartOfMark(rule)),
                           HitJson(rule, record.record, runner_->run.WhyOf(number)));
        TakeHit(rule, record.key, line);
    }
    if (runner_->correlator.IsIdle())
        return;
    for (const CorrelationHit& hit : runner_->correlator.Take(runner_->run)) {
        const Rule& rule = rules[hit.rule];
        const std::string json = CountedHitJson(rule, hit);
        TakeHit(rule, "", options_.givesHits ? Numbered(NumberOf("", json), json) : "");
    }
    givenUp_ = runner_->correlator.GivenUp();
}

// Several events make the hit of a rule of rules, so it is stored with none of them.
void RuleWatch::TakeHit(const Rule& rule, std::string_view eventKey, const std::string& line) {
    ++hits_[static_cast<std::size_t>(SeverityOf(rule.level))];
    if (!eventKey.empty())
        found_.enrichments.push_back({std::string(eventKey) + SuffixOf(rule), MarkOf(rule)});
    if (line.empty())
        return;
    if (spool_.Account().waitingHits + found_.hits.size() < mostWaiting)
        found_.hits.push_back(line);
    else
        ++hitsNotGiven_;
}

// Hits go soon, and as many together as have come; a position alone may wait.
bool RuleWatch::IsDue() const {
    const auto since = Clock::now() - lastCommit_;
    if (HasFound())
        return since >= betweenCommits || found_.enrichments.size() >= mostFound;
    return at_ != committed_ && since >= betweenPositions;
}

void RuleWatch::Commit() {
    if (!HasFound() && at_ == committed_)
        return;
    found_.marks = {{positionMark, std::to_string(at_)}};
    std::string problem;
    Delivery* const all[] = {&found_};
    if (!spool_.Append(
            all, [] { return std::string(); }, &problem)) {
        log_.SaySeldom(problem);
        std::unique_lock hold(mutex_);
        changed_.wait_for(hold, betweenPositions, [this] { return stopping_; });
        return;
    }
    lastCommit_ = Clock::now();
    const bool hasHits = HasFound();
    found_ = {};
    committed_ = at_;
    if (runner_)
        spool_.KeepBehind(committed_, options_.backlog);
    if (hasHits)
        onHits_();
}

// What was found is for those who may ask; the log is told how much.
void RuleWatch::TellHits() {
    const std::uint64_t hits = std::accumulate(hits_.begin(), hits_.end(), std::uint64_t{0});
    if (hits == hitsTold_ || Clock::now() - lastTold_ < betweenWords)
        return;
    log_.Note("rules: " + std::to_string(hits - hitsTold_) + " hit(s)");
    hitsTold_ = hits;
    lastTold_ = Clock::now();
}

}  // namespace zel
