#include "agent/feeder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "common/hostservices.h"
#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"

// The way from the spool into the store. The spool is the queue: rows are read from it in their
// order, also those that an earlier process has left, so what happens after a crash is what happens
// all the time.
//
// A record in the store's queue is in memory alone. The store tells how many it has handed to the
// system (IWriteProgress); what these were is known by counting. The files are then synced, as the
// store itself does not, and only behind that are the rows dropped from the spool. When the store
// reports a loss nobody knows of which records, so all that was not dropped is given again: keys
// are identity, a record that comes twice under one key is one.

namespace zel {

namespace {

namespace hr = ZEL::hr;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr auto look = milliseconds(500);  // at what the store has settled
constexpr auto betweenDrops = milliseconds(5000);
constexpr auto afterLoss = milliseconds(2000);
constexpr std::size_t mostPending = 10000;  // rows, ahead of which a drop comes early

bool Grew(const LostRecords& now, const LostRecords& before) {
    return now.events != before.events || now.receiveRows != before.receiveRows;
}

}  // namespace

Feeder::Feeder(Spool& spool, StoreSession& store, AgentLog& log, std::string directory)
    : spool_(spool), store_(store), log_(log), directory_(std::move(directory)) {}

Feeder::~Feeder() {
    Stop(std::chrono::seconds(0));
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool Feeder::Start() {
    descriptor_ = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor_ < 0 ||
        Failed(store_->QueryInterface(ZEL::iidWriteProgress, progress_.ReceiveVoid()))) {
        log_.Say("the store does not tell what it has written");
        return false;
    }
    given_ = progress_->SettledRecords();
    lostBefore_ = store_.Lost();
    replayUntil_ = spool_.LastRow();
    nextDrop_ = SteadyClock::now() + betweenDrops;
    sign_ = wm::Clock().TickCount64();
    thread_ = std::thread([this] { Main(); });
    return true;
}

void Feeder::Wake() {
    const std::lock_guard hold(mutex_);
    hasMore_ = true;
    changed_.notify_all();
}

void Feeder::Stop(std::chrono::seconds longest) {
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
        stopAt_ = SteadyClock::now() + longest;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
    progress_.Reset();
}

std::uint64_t Feeder::SilentMs() const noexcept {
    return wm::Clock().TickCount64() - sign_;
}

bool Feeder::MayGoOn() {
    sign_ = wm::Clock().TickCount64();
    const std::lock_guard hold(mutex_);
    return !stopping_ || SteadyClock::now() < stopAt_;
}

void Feeder::Main() {
    for (;;) {
        {
            const std::lock_guard hold(mutex_);
            hasMore_ = false;
        }
        while (MayGoOn() && GiveNext())
            DropSettled(false);
        DropSettled(false);
        hasReplayed_ = hasReplayed_ || at_ >= replayUntil_;  // also where nothing was left
        std::unique_lock hold(mutex_);
        if (stopping_)
            return;
        changed_.wait_for(hold, pending_.empty() ? milliseconds(5000) : look,
                          [&] { return stopping_ || hasMore_; });
    }
}

// False when there is no further row, or the store takes none for now.
bool Feeder::GiveNext() {
    std::string problem;
    const std::optional<SpooledRow> row = spool_.Next(at_, &problem);
    if (!problem.empty())
        log_.SaySeldom(problem);
    return row && Give(*row);
}

bool Feeder::Give(const SpooledRow& row) {
    Given given{row.number, 0, row.isDamaged ? row.events : 0};
    if (row.isDamaged)
        log_.Say("a part of the spool is damaged: " + std::to_string(row.events) +
                 " record(s) are lost");
    const std::uint64_t round = round_;
    for (const SpooledRow::Record& record : row.records) {
        const std::string pointer = "{\"event_pkey\":" + wm::JsonString(record.key) + "}";
        bool isRefused = false;
        if (!Insert(record.key, record.record, &isRefused) ||
            (!isRefused && !Insert(record.receiveKey, pointer, &isRefused)))
            return false;  // the row is given anew by the next process
        given.lost += isRefused ? 1 : 0;
        if (round != round_)
            return true;  // meanwhile the store has lost rows ahead, which come first
    }
    at_ = row.number;
    hasReplayed_ = hasReplayed_ || at_ >= replayUntil_;
    given.records = given_;
    pending_.push_back(given);
    return true;
}

// A full queue passes. What else the store says of a record will not change.
bool Feeder::Insert(std::string_view key, std::string_view value, bool* isRefused) {
    const auto keyValue = wm::ToValue(key);
    const auto text = wm::ToValue(value);
    auto pause = std::chrono::microseconds(200);
    ZEL::HRESULT result = hr::outOfMemory;
    while (keyValue && text && (result = store_->Insert(keyValue.Get(), text.Get())) == hr::fail) {
        if (!MayGoOn())
            return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(20000));
        DropSettled(false);
    }
    *isRefused = Failed(result);
    given_ += *isRefused ? 0 : 1;
    if (*isRefused)
        log_.SaySeldom("the store refuses a record: " +
                       Describe(static_cast<std::int32_t>(result)));
    return true;
}

bool Feeder::HasLost() {
    return Grew(store_.Lost(), lostBefore_);
}

void Feeder::GiveAgain() {
    storeFails_ = true;
    log_.SaySeldom("the store could not write; what it lost is in the spool and is given again");
    for (const DatabaseError& error : store_.TakeDatabaseErrors())
        log_.SaySeldom(error.Text());
    lostBefore_ = store_.Lost();
    at_ = pending_.empty() ? at_ : pending_.front().row - 1;
    pending_.clear();
    ++round_;
    std::unique_lock hold(mutex_);
    changed_.wait_for(hold, afterLoss, [&] { return stopping_; });
    hasMore_ = true;
}

// The number of what is settled is asked for first: losses among that were reported ahead of it.
void Feeder::DropSettled(bool isLast) {
    const bool isDue = isLast || pending_.size() > mostPending || SteadyClock::now() >= nextDrop_;
    if (pending_.empty() || !isDue)
        return;
    const std::uint64_t settled = isLast ? given_ : progress_->SettledRecords();
    if (HasLost())
        return isLast ? void() : GiveAgain();
    std::int64_t through = 0;
    std::uint64_t lost = 0;
    std::size_t count = 0;
    while (count < pending_.size() && pending_[count].records <= settled) {
        through = pending_[count].row;
        lost += pending_[count++].lost;
    }
    if (count > 0 && Drop(through, lost))
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
    nextDrop_ = SteadyClock::now() + (count > 0 ? betweenDrops : look);
}

bool Feeder::Drop(std::int64_t through, std::uint64_t lost) {
    std::string problem;
    const bool isSynced = ::syncfs(descriptor_) == 0;
    const bool isDropped = isSynced && spool_.Drop(through, NewestFolder(), lost, &problem);
    if (!isDropped)
        log_.SaySeldom(isSynced ? problem : "the store's files can't be synced");
    storeFails_ = !isSynced;
    lastFlush_ = wm::Clock().TickCount64();
    return isDropped;
}

bool Feeder::Settle() {
    DropSettled(true);
    return pending_.empty();
}

// That of events which the store writes now. What was given ahead of midnight may stand in the one
// before; the ledger is right in all, and by a few records wrong between the two.
std::string Feeder::NewestFolder() const {
    std::string newest;
    DIR* const directory = ::opendir(directory_.c_str());
    while (const dirent* const entry = directory != nullptr ? ::readdir(directory) : nullptr) {
        const std::string name = entry->d_name;
        const bool isFolder = name.size() >= 8 && !name.ends_with("999") &&
                              name.find_first_not_of("0123456789") == name.npos;
        if (isFolder && name > newest)
            newest = name;
    }
    if (directory != nullptr)
        ::closedir(directory);
    return newest;
}

}  // namespace zel
