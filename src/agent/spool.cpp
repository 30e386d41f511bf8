#include "agent/spool.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "agent/spooldatabase.h"

// The spool is a table of requests in a database of SQLite, with what belongs to it in the same
// transactions: the ids of the recent past and the ledger. So they can't contradict each other,
// whenever the process is killed. In WAL mode with synchronous=FULL a commit is one write and one
// fsync; the caller puts all requests that wait into one (group commit).
//
//   spool     one row for each request: its records in a body with a checksum, and how many
//   enrichments, hits  the same of what was found out of events
//   ids       ids that were accepted, in the order of acceptance
//   ledger    accepted, lost and purged, by name
//   marks     how far ways in have come that can go on by themselves, with the records in hand; the
//             receive-time keys of the last record that was accepted and the last one settled
//   folders   how many records went into which folder of the store: what a purge takes with it
//   ranges    the last receive-time key in each folder: where a purge leaves a gap
//   purges    the same of folders that are gone, and how many records each had
//
// A transaction that was cut off is not there after the next start, and nobody was told that it was
// accepted. A row whose body does not fit its checksum any more counts as lost; a database that is
// damaged as a whole is put aside.

namespace zel {

namespace {

// Names of marks.
constexpr std::string_view acceptedMark = "receive accepted";
constexpr std::string_view settledMark = "receive settled";

// Up to which row the store has all, where rows behind that have stayed.
constexpr const char* settledRowMark = "settled row";

void PutText(std::string_view text, std::string* body) {
    const auto length = static_cast<std::uint32_t>(text.size());
    char bytes[sizeof(length)];
    std::memcpy(bytes, &length, sizeof(length));
    body->append(bytes, sizeof(bytes)).append(text);
}

bool TakeText(std::string_view* rest, std::string_view* text) {
    std::uint32_t length = 0;
    if (rest->size() < sizeof(length))
        return false;
    std::memcpy(&length, rest->data(), sizeof(length));
    rest->remove_prefix(sizeof(length));
    if (rest->size() < length)
        return false;
    *text = rest->substr(0, length);
    rest->remove_prefix(length);
    return true;
}

bool ReadBody(SpooledRow* row) {
    std::string_view rest = row->body;
    while (!rest.empty()) {
        SpooledRow::Record& record = row->records.emplace_back();
        if (!TakeText(&rest, &record.key) || !TakeText(&rest, &record.receiveKey) ||
            !TakeText(&rest, &record.record))
            return false;
    }
    return row->records.size() == row->events;
}

// Makes a directory that only this user enters. One that is there stays as it is.
bool MakeDirectory(const std::string& path, std::string* problem) {
    if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST)
        return true;
    *problem = "the spool " + path + " can't be made: " + std::strerror(errno);
    return false;
}

}  // namespace

Spool::Spool() : database_(std::make_unique<Database>()) {}
Spool::~Spool() = default;

bool Spool::Prepare(const std::string& file, std::string* problem) {
    if (!database_->Open(file)) {
        *problem = database_->Problem();
        return false;
    }
    return ReadLedger(problem) && ReadPlaces(problem);
}

// Once, at the start: then the numbers are carried on.
bool Spool::ReadLedger(std::string* problem) {
    Statement read;
    const bool isGood =
        read.Prepare(database_->handle,
                     "WITH settled(row) AS (SELECT CAST(coalesce((SELECT value FROM marks WHERE"
                     " name='settled row'), '0') AS INTEGER)),"
                     " waiting AS (SELECT * FROM spool WHERE number > (SELECT row FROM settled)) "
                     "SELECT (SELECT coalesce(sum(value), 0) FROM ledger WHERE name='accepted'),"
                     " (SELECT coalesce(sum(value), 0) FROM ledger WHERE name='lost'),"
                     " (SELECT coalesce(sum(value), 0) FROM ledger WHERE name='purged'),"
                     " (SELECT coalesce(sum(events), 0) FROM folders),"
                     " (SELECT coalesce(sum(events), 0) FROM waiting),"
                     " (SELECT coalesce(sum(length(body)), 0) FROM waiting),"
                     " (SELECT count(*) FROM ids), (SELECT coalesce(max(number), 0) FROM spool),"
                     " (SELECT coalesce(sum(events), 0) FROM enrichments),"
                     " (SELECT coalesce(sum(length(body)), 0) FROM enrichments),"
                     " (SELECT coalesce(max(number), 0) FROM enrichments),"
                     " (SELECT coalesce(sum(events), 0) FROM hits), (SELECT row FROM settled),"
                     " (SELECT coalesce(sum(value), 0) FROM ledger WHERE name='notices')");
    if (!isGood || !read.Step()) {
        *problem = database_->Problem();
        return false;
    }
    const auto number = [&](int column) { return static_cast<std::uint64_t>(read.Number(column)); };
    Ledger ledger;
    ledger.accepted = number(0);
    ledger.lost = number(1);
    ledger.purged = number(2);
    ledger.stored = number(3);
    ledger.waiting = number(4);
    ledger.waitingBytes = number(5) + number(9);
    ledger.ids = number(6);
    ledger.notices = number(13);
    ledger.waitingEnrichments = number(8);
    ledger.waitingHits = number(11);
    const std::lock_guard hold(accountMutex_);
    account_ = ledger;
    lastRow_ = database_->events.last = read.Number(7);
    lastEnrichments_ = database_->enrichments.last = read.Number(10);
    settledRow_ = read.Number(12);
    return true;
}

bool Spool::ReadPlaces(std::string* problem) {
    Statement places, purges;
    if (!places.Prepare(
            database_->handle,
            "SELECT coalesce(max(CASE name WHEN 'receive accepted' THEN value END), ''),"
            " coalesce(max(CASE name WHEN 'receive settled' THEN value END), '')"
            " FROM marks") ||
        !places.Step() ||
        !purges.Prepare(database_->handle, "SELECT last, events FROM purges ORDER BY last")) {
        *problem = database_->Problem();
        return false;
    }
    const std::lock_guard hold(accountMutex_);
    accepted_ = places.Text(0);
    settled_ = places.Text(1);
    purged_.clear();
    while (purges.Step())
        purged_.push_back({purges.Text(0), static_cast<std::uint64_t>(purges.Number(1))});
    return true;
}

bool Spool::Open(const std::string& directory, const SpoolLimits& limits, std::string* problem) {
    limits_ = limits;
    const std::string file = directory + "/spool.db";
    if (!MakeDirectory(directory, problem))
        return false;
    if (Prepare(file, problem))
        return true;
    const int code = ::sqlite3_extended_errcode(database_->handle) & 0xFF;
    if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB)
        return false;
    const std::string aside = file + ".damaged-" + std::to_string(std::time(nullptr));
    database_->Close();
    for (const char* const part : {"", "-wal", "-shm"})
        if (std::rename((file + part).c_str(), (aside + part).c_str()) != 0 && errno != ENOENT)
            return false;
    std::string again;
    if (!Prepare(file, &again)) {
        *problem = again;
        return false;
    }
    *problem = "the spool was damaged and is kept as " + aside + "; a new one was begun (" +
               *problem + ")";
    return true;
}

void Spool::SetLimits(const SpoolLimits& limits) {
    const std::lock_guard hold(databaseMutex_);
    limits_ = limits;
}

bool Spool::SetMarks(const std::vector<SpoolMark>& marks) {
    return std::all_of(marks.begin(), marks.end(), [this](const SpoolMark& mark) {
        return mark.value.empty() ? database_->dropMark.Bind(1, mark.name).Run()
                                  : database_->setMark.Bind(1, mark.name).Bind(2, mark.value).Run();
    });
}

bool Spool::Keep(const std::vector<SpoolMark>& marks, std::string* problem) {
    const std::lock_guard hold(databaseMutex_);
    return database_->Transact(problem, [&] { return SetMarks(marks); });
}

std::vector<SpoolMark> Spool::Marks(const std::string& prefix) {
    const std::lock_guard hold(databaseMutex_);
    std::vector<SpoolMark> marks;
    database_->marks.Bind(1, prefix);
    while (database_->marks.Step())
        marks.push_back({database_->marks.Text(0), database_->marks.Text(1)});
    database_->marks.Reset();
    return marks;
}

// Of an item with an id that is known only the mark is set. Receive keys of such items are left
// over, which harms nobody.
bool Spool::AppendOne(Delivery& delivery, const std::vector<std::string>& receiveKeys,
                      std::size_t* usedKeys, Ledger* ledger) {
    std::string body;
    std::int64_t events = 0;
    const std::int64_t now = std::time(nullptr);
    if (!SetMarks(delivery.marks))
        return false;
    for (SpoolItem& item : delivery.items) {
        item.receiveKey = receiveKeys[(*usedKeys)++];
        item.isDuplicate = false;
        if (!item.id.empty()) {
            if (!database_->addId.Bind(1, now).Bind(2, item.id).Run())
                return false;
            item.isDuplicate = ::sqlite3_changes(database_->handle) == 0;
            ledger->ids += item.isDuplicate ? 0 : 1;
        }
        if (item.isDuplicate)
            continue;
        ++events;
        PutText(item.key, &body);
        PutText(item.receiveKey, &body);
        PutText(item.record, &body);
    }
    if (events == 0)
        return true;
    ledger->accepted += static_cast<std::uint64_t>(events);
    ledger->notices += delivery.source == intakeSource::service ? 1 : 0;
    ledger->waiting += static_cast<std::uint64_t>(events);
    ledger->waitingBytes += body.size();
    return database_->AppendRow(SpoolKind::events, static_cast<std::uint64_t>(events), body);
}

bool Spool::AppendOthers(const Delivery& delivery, Ledger* ledger) {
    std::string body;
    for (const SpooledEnrichment& enrichment : delivery.enrichments) {
        PutText(enrichment.key, &body);
        PutText("", &body);
        PutText(enrichment.text, &body);
    }
    ledger->waitingEnrichments += delivery.enrichments.size();
    ledger->waitingBytes += body.size();
    if (!body.empty() &&
        !database_->AppendRow(SpoolKind::enrichments, delivery.enrichments.size(), body))
        return false;
    body.clear();
    for (const std::string& hit : delivery.hits) {
        PutText("", &body);
        PutText("", &body);
        PutText(hit, &body);
    }
    ledger->waitingHits += delivery.hits.size();
    return body.empty() || database_->AppendRow(SpoolKind::hits, delivery.hits.size(), body);
}

bool Spool::Append(std::span<Delivery* const> deliveries,
                   const std::function<std::string()>& makeReceiveKey, std::string* problem) {
    std::vector<std::string> receiveKeys;
    for (const Delivery* const delivery : deliveries)
        for (std::size_t i = 0; i < delivery->items.size(); ++i)
            receiveKeys.push_back(makeReceiveKey());
    const std::lock_guard hold(databaseMutex_);
    const Ledger before = Account();
    Ledger after = before;
    std::size_t usedKeys = 0;
    const bool isTaken = database_->Transact(problem, [&] {
        return std::all_of(deliveries.begin(), deliveries.end(),
                           [&](Delivery* delivery) {
                               return AppendOne(*delivery, receiveKeys, &usedKeys, &after) &&
                                      AppendOthers(*delivery, &after);
                           }) &&
               database_->Count("accepted", after.accepted - before.accepted) &&
               database_->Count("notices", after.notices - before.notices) &&
               (after.accepted == before.accepted ||
                database_->setMark.Bind(1, acceptedMark).Bind(2, receiveKeys.back()).Run());
    });
    const std::lock_guard holdAccount(accountMutex_);
    if (!isTaken) {
        database_->events.last = lastRow_;
        database_->enrichments.last = lastEnrichments_;
        return false;
    }
    account_ = after;
    lastRow_ = database_->events.last;
    lastEnrichments_ = database_->enrichments.last;
    if (after.accepted != before.accepted)
        accepted_ = receiveKeys.back();
    return true;
}

std::optional<SpooledRow> Spool::Next(std::int64_t behind, std::string* problem, SpoolKind kind) {
    const std::lock_guard hold(databaseMutex_);
    Statement& next = database_->Of(kind).next;
    problem->clear();
    if (!next.Bind(1, behind).Step()) {
        if (!next.Reset())
            *problem = database_->Problem();
        return std::nullopt;
    }
    SpooledRow row;
    row.number = next.Number(0);
    row.events = static_cast<std::uint64_t>(next.Number(1));
    const std::int64_t checksum = next.Number(2);
    row.body = next.Text(3);
    next.Reset();
    row.isDamaged = Checksum(row.body) != checksum || !ReadBody(&row);
    if (row.isDamaged)
        row.records.clear();
    return row;
}

// The oldest go first, by number and by age.
bool Spool::ForgetIds(Ledger* ledger) {
    const std::int64_t oldest = std::time(nullptr) - static_cast<std::int64_t>(limits_.idSeconds);
    if (!database_->oldIds.Bind(1, oldest).Run())
        return false;
    ledger->ids -= std::min<std::uint64_t>(
        ledger->ids, static_cast<std::uint64_t>(::sqlite3_changes(database_->handle)));
    if (!database_->forgetIds.Bind(1, static_cast<std::int64_t>(limits_.ids)).Run())
        return false;
    ledger->ids -= std::min<std::uint64_t>(
        ledger->ids, static_cast<std::uint64_t>(::sqlite3_changes(database_->handle)));
    return true;
}

bool Spool::NoteRange(const SettledPart& part) {
    Database& database = *database_;
    if (part.lastKey.empty())
        return true;
    return database.setMark.Bind(1, settledMark).Bind(2, part.lastKey).Run() &&
           database.moveRange.Bind(1, part.folder).Bind(2, part.lastKey).Run() &&
           database.addRange.Bind(1, part.folder).Bind(2, part.lastKey).Run();
}

bool Spool::Drop(const SettledPart& part, std::string* problem) {
    const std::lock_guard hold(databaseMutex_);
    Ledger after = Account();
    std::uint64_t unseen = 0;
    const bool isDropped = database_->Transact(problem, [&] {
        std::uint64_t events = 0, bytes = 0;
        if (!database_->Sum(database_->events, SettledRow(), part.through, &events, &bytes))
            return false;
        after.waitingBytes -= bytes;
        after.waiting -= events;
        after.lost += part.lost;
        after.stored += events - part.lost;
        return DropSeen(part.through, &unseen) && database_->Count("lost", part.lost) &&
               database_->addFolder.Bind(1, part.folder)
                   .Bind(2, static_cast<std::int64_t>(events - part.lost))
                   .Run() &&
               NoteRange(part) && ForgetIds(&after);
    });
    const std::lock_guard holdAccount(accountMutex_);
    if (!isDropped)
        return false;
    account_ = after;
    settled_ = part.lastKey.empty() ? settled_ : part.lastKey;
    settledRow_ = part.through;
    unseen_ += unseen;
    return true;
}

// Where rows stay, how far the store has come has to be known from one process to the next.
bool Spool::DropSeen(std::int64_t through, std::uint64_t* unseen) {
    std::int64_t last = std::min(through, keepBehind_);
    if (keepBehind_ < through) {
        std::uint64_t bytes = 0;
        Statement& kept = database_->kept;
        for (kept.Bind(1, last).Bind(2, through); kept.Step();) {
            bytes += static_cast<std::uint64_t>(kept.Number(2));
            if (bytes <= mostKept_)
                continue;
            last = std::max(last, kept.Number(0));
            *unseen += static_cast<std::uint64_t>(kept.Number(1));
        }
        if (!kept.Reset() || !SetMarks({{settledRowMark, std::to_string(through)}}))
            return false;
    }
    return database_->events.drop.Bind(1, last).Run();
}

bool Spool::DropOthers(SpoolKind kind, std::int64_t through, std::string* problem) {
    const std::lock_guard hold(databaseMutex_);
    Ledger after = Account();
    const bool isDropped = database_->Transact(problem, [&] {
        std::uint64_t count = 0, bytes = 0;
        if (!database_->Sum(database_->Of(kind), 0, through, &count, &bytes))
            return false;
        (kind == SpoolKind::hits ? after.waitingHits : after.waitingEnrichments) -= count;
        after.waitingBytes -= kind == SpoolKind::hits ? 0 : bytes;
        return database_->Of(kind).drop.Bind(1, through).Run();
    });
    const std::lock_guard holdAccount(accountMutex_);
    if (isDropped)
        account_ = after;
    return isDropped;
}

void Spool::KeepBehind(std::int64_t row, std::uint64_t mostBytes) {
    const std::lock_guard hold(databaseMutex_);
    keepBehind_ = row;
    mostKept_ = mostBytes;
}

std::int64_t Spool::SettledRow() const {
    const std::lock_guard hold(accountMutex_);
    return settledRow_;
}

std::uint64_t Spool::DroppedUnseen() const {
    const std::lock_guard hold(accountMutex_);
    return unseen_;
}

bool Spool::Purged(std::span<const std::string> folders, std::string* problem) {
    const std::lock_guard hold(databaseMutex_);
    Ledger after = Account();
    std::vector<PurgedRange> ranges;
    const bool isCounted = database_->Transact(problem, [&] {
        std::uint64_t events = 0;
        for (const std::string& folder : folders) {
            PurgedRange range;
            Statement &purge = database_->purge, &take = database_->takeRange;
            if (purge.Bind(1, folder).Step())
                range.events = static_cast<std::uint64_t>(purge.Number(0));
            if (purge.Reset() && take.Bind(1, folder).Step())
                range.last = take.Text(0);
            if (!take.Reset() || !database_->addPurge.Bind(1, range.last)
                                      .Bind(2, static_cast<std::int64_t>(range.events))
                                      .Run())
                return false;
            events += range.events;
            ranges.push_back(std::move(range));
        }
        after.stored -= events;
        after.purged += events;
        return database_->Count("purged", events);
    });
    const std::lock_guard holdAccount(accountMutex_);
    if (isCounted) {
        account_ = after;
        purged_.insert(purged_.end(), ranges.begin(), ranges.end());
    }
    return isCounted;
}

std::string Spool::Accepted() const {
    const std::lock_guard hold(accountMutex_);
    return accepted_;
}

std::string Spool::Settled() const {
    const std::lock_guard hold(accountMutex_);
    return settled_;
}

void Spool::BeginBehind(const std::string& receiveKey) {
    const std::lock_guard hold(accountMutex_);
    accepted_ = std::max(accepted_, receiveKey);
    if (account_.waiting == 0)
        settled_ = accepted_;
}

std::uint64_t Spool::PurgedBehind(std::string_view place) const {
    const std::lock_guard hold(accountMutex_);
    std::uint64_t events = 0;
    for (const PurgedRange& range : purged_)
        events += range.last >= place ? range.events : 0;
    return events;
}

std::vector<std::string> Spool::Folders() {
    const std::lock_guard hold(databaseMutex_);
    std::vector<std::string> names;
    while (database_->folders.Step())
        names.push_back(database_->folders.Text(0));
    database_->folders.Reset();
    return names;
}

Ledger Spool::Account() const {
    const std::lock_guard hold(accountMutex_);
    return account_;
}

std::int64_t Spool::LastRow(SpoolKind kind) const {
    const std::lock_guard hold(accountMutex_);
    return kind == SpoolKind::events ? lastRow_ : lastEnrichments_;
}

}  // namespace zel
