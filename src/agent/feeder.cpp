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
//
// Enrichments go the same way beside them. They go into the folders of their events, of which one
// may be damaged for ever: when nothing else is lost, again and again, and not for want of room,
// memory or rights, what the store loses of them is counted as lost and the others go on.

namespace zel {

namespace {

namespace hr = ZEL::hr;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr auto look = milliseconds(500);  // at what the store has settled
constexpr auto betweenDrops = milliseconds(5000);
constexpr auto afterLoss = milliseconds(2000);
constexpr std::size_t mostPending = 10000;  // rows, ahead of which a drop comes early
constexpr std::uint32_t mostBadRounds = 5;

bool LostEvents(const LostRecords& since) {
    return since.events != 0 || since.receiveRows != 0;
}

// Whether the store failed for a reason that may pass.
bool IsWant(const std::vector<DatabaseError>& errors) {
    constexpr std::uint32_t wants[] = {0x80070070, 0x80070004, 0x8007000E, 0x80070005};
    return std::any_of(errors.begin(), errors.end(), [&](const DatabaseError& error) {
        return std::find(std::begin(wants), std::end(wants),
                         static_cast<std::uint32_t>(error.lastResult)) != std::end(wants);
    });
}

}  // namespace

Feeder::Feeder(Spool& spool, StoreSession& store, AgentLog& log, std::string directory,
               std::function<void(std::uint64_t)> onSettled)
    : spool_(spool),
      store_(store),
      log_(log),
      directory_(std::move(directory)),
      onSettled_(std::move(onSettled)) {}

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
    events_.given = progress_->SettledRecords();
    enrichments_.given = progress_->SettledEnrichments();
    lostBefore_ = store_.Lost();
    for (Lane* const lane : {&events_, &enrichments_})
        lane->replayUntil = spool_.LastRow(lane->kind);
    events_.at = spool_.SettledRow();
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

// At the end what the store has lost in between is given once more: there may be room again.
void Feeder::Main() {
    for (bool isLast = false;;) {
        {
            const std::lock_guard hold(mutex_);
            hasMore_ = false;
        }
        for (bool isMore = true; isMore && MayGoOn();) {
            isMore = GiveNext(events_);
            isMore = GiveNext(enrichments_) || isMore;
            DropSettled(false);
        }
        LookAtReplay();  // also where nothing was left
        if (AwaitMore())
            continue;
        if (isLast || !HasLost())
            return;
        isLast = true;
        TakeLosses();
    }
}

// False once it is to end.
bool Feeder::AwaitMore() {
    const bool isIdle = events_.pending.empty() && enrichments_.pending.empty();
    std::unique_lock hold(mutex_);
    if (!stopping_)
        changed_.wait_for(hold, isIdle ? milliseconds(5000) : look,
                          [&] { return stopping_ || hasMore_; });
    return !stopping_;
}

bool Feeder::HasLost() const {
    const LostRecords lost = store_.Lost() - lostBefore_;
    return LostEvents(lost) || lost.enrichments != 0;
}

void Feeder::LookAtReplay() {
    hasReplayed_ = hasReplayed_ || (events_.at >= events_.replayUntil &&
                                    enrichments_.at >= enrichments_.replayUntil);
}

// False when there is no further row, or the store takes none for now.
bool Feeder::GiveNext(Lane& lane) {
    std::string problem;
    const std::optional<SpooledRow> row = spool_.Next(lane.at, &problem, lane.kind);
    if (!problem.empty())
        log_.SaySeldom(problem);
    return row && Give(lane, *row);
}

// A record that is refused has no row by the time of its receipt.
bool Feeder::GiveRecord(Lane& lane, const SpooledRow::Record& record, bool* isRefused) {
    if (!Insert(lane, record.key, record.record, isRefused))
        return false;
    if (lane.kind == SpoolKind::enrichments || *isRefused)
        return true;
    const std::string pointer = "{\"event_pkey\":" + wm::JsonString(record.key) + "}";
    return Insert(lane, record.receiveKey, pointer, isRefused);
}

bool Feeder::Give(Lane& lane, const SpooledRow& row) {
    Given given{row.number, 0, row.isDamaged ? row.events : 0, ""};
    if (row.isDamaged)
        log_.Say("a part of the spool is damaged: " + std::to_string(row.events) +
                 " record(s) are lost");
    const std::uint64_t round = round_;
    for (const SpooledRow::Record& record : row.records) {
        bool isRefused = false;
        if (!GiveRecord(lane, record, &isRefused))
            return false;  // the row is given anew by the next process
        given.lost += isRefused ? 1 : 0;
        if (round != round_)
            return true;  // meanwhile the store has lost rows ahead, which come first
    }
    if (!row.records.empty())
        given.lastKey = row.records.back().receiveKey;
    lane.at = row.number;
    LookAtReplay();
    given.records = lane.given;
    lane.pending.push_back(std::move(given));
    return true;
}

// A full queue passes. What else the store says of a record will not change.
bool Feeder::Insert(Lane& lane, std::string_view key, std::string_view value, bool* isRefused) {
    const bool isEvent = lane.kind == SpoolKind::events;
    const auto keyValue = wm::ToValue(key);
    const auto text = wm::ToValue(value);
    auto pause = std::chrono::microseconds(200);
    ZEL::HRESULT result = hr::outOfMemory;
    const auto insert = [&] {
        return isEvent ? store_->Insert(keyValue.Get(), text.Get())
                       : store_->InsertSilent(keyValue.Get(), text.Get());
    };
    while (keyValue && text && (result = insert()) == hr::fail) {
        if (!MayGoOn())
            return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(20000));
        DropSettled(false);
    }
    *isRefused = Failed(result);
    lane.given += *isRefused ? 0 : 1;
    if (*isRefused)
        log_.SaySeldom("the store refuses a record: " +
                       Describe(static_cast<std::int32_t>(result)));
    return true;
}

void Feeder::TakeLosses() {
    const LostRecords lost = store_.Lost() - lostBefore_;
    const std::vector<DatabaseError> errors = store_.TakeDatabaseErrors();
    for (const DatabaseError& error : errors)
        log_.SaySeldom(error.Text());
    lostBefore_ = store_.Lost();
    badRounds_ = LostEvents(lost) || IsWant(errors) ? 0 : badRounds_ + 1;
    if (badRounds_ < mostBadRounds)
        return GiveAgain();
    log_.lostEnrichments += lost.enrichments;
    log_.Say(std::to_string(lost.enrichments) +
             " enrichment(s) are lost: the store can't write them");
}

void Feeder::GiveAgain() {
    storeFails_ = true;
    log_.SaySeldom("the store could not write; what it lost is in the spool and is given again");
    for (Lane* const lane : {&events_, &enrichments_}) {
        lane->at = lane->pending.empty() ? lane->at : lane->pending.front().row - 1;
        lane->pending.clear();
    }
    ++round_;
    std::unique_lock hold(mutex_);
    changed_.wait_for(hold, afterLoss, [&] { return stopping_; });
    hasMore_ = true;
}

Feeder::Settled Feeder::SettledOf(const Lane& lane, std::uint64_t settled) {
    Settled all;
    for (const Given& given : lane.pending) {
        if (given.records > settled)
            break;
        ++all.rows;
        all.part.through = given.row;
        all.part.lost += given.lost;
        all.part.lastKey = given.lastKey.empty() ? all.part.lastKey : given.lastKey;
    }
    return all;
}

// The numbers of what is settled are asked for first: losses among that were reported ahead of
// them.
void Feeder::DropSettled(bool isLast) {
    const std::size_t pending = events_.pending.size() + enrichments_.pending.size();
    const bool isDue = isLast || pending > mostPending || SteadyClock::now() >= nextDrop_;
    if (pending == 0 || !isDue)
        return;
    Settled events = SettledOf(events_, isLast ? events_.given : progress_->SettledRecords());
    const Settled enrichments =
        SettledOf(enrichments_, isLast ? enrichments_.given : progress_->SettledEnrichments());
    if (HasLost())
        return isLast ? void() : TakeLosses();
    const bool isAny = events.rows + enrichments.rows > 0;
    if (isAny && Drop(events, enrichments)) {
        const auto forget = [](Lane& lane, std::size_t rows) {
            lane.pending.erase(lane.pending.begin(),
                               lane.pending.begin() + static_cast<std::ptrdiff_t>(rows));
        };
        forget(events_, events.rows);
        forget(enrichments_, enrichments.rows);
    }
    nextDrop_ = SteadyClock::now() + (isAny ? betweenDrops : look);
}

bool Feeder::Drop(Settled& events, const Settled& enrichments) {
    std::string problem;
    events.part.folder = NewestFolder();
    const bool isSynced = ::syncfs(descriptor_) == 0;
    const bool isDropped =
        isSynced && (events.rows == 0 || spool_.Drop(events.part, &problem)) &&
        (enrichments.rows == 0 ||
         spool_.DropOthers(SpoolKind::enrichments, enrichments.part.through, &problem));
    if (!isDropped)
        log_.SaySeldom(isSynced ? problem : "the store's files can't be synced");
    storeFails_ = !isSynced;
    badRounds_ = isDropped && enrichments.rows > 0 ? 0 : badRounds_;
    lastFlush_ = wm::Clock().TickCount64();
    if (isDropped)
        onSettled_(events.part.lost);
    return isDropped;
}

bool Feeder::Settle() {
    DropSettled(true);
    return events_.pending.empty() && enrichments_.pending.empty();
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
