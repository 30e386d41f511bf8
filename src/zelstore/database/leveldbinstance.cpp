#include "zelstore/database/leveldbinstance.h"

#include <leveldb/db.h>
#include <leveldb/write_batch.h>

#include <algorithm>

#include "common/boundary.h"
#include "common/errorreport.h"
#include "common/filesystem.h"
#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/folderenv.h"
#include "zelstore/database/foldergate.h"
#include "zelstore/database/foldermemory.h"
#include "zelstore/database/iquerysink.h"
#include "zelstore/database/leftovers.h"
#include "zelstore/database/readingenv.h"
#include "zelstore/database/runningwalk.h"
#include "zelstore/database/statusresult.h"
#include "zelstore/keys/keyfield.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/keysplit.h"

// One database and its users.
//
// The object closes the database in its destructor, on the thread of whoever lets go last, under
// the lock of the folder's gate; so an opener that comes meanwhile waits until the files are whole.
// A database that is to go moves away first, under a name for removal, and its readers read on
// there. What is then closed is nobody's any more, and the gate is free.
//
// A scan reads a snapshot: rows that are written while it runs are not met, and rows that it has
// still to meet do not change. Prefix reads of one query after the other share a snapshot and a
// cursor, since they ask for neighbouring keys. Neither fills the library's cache: each row is read
// once.

namespace ZEL {

namespace {

// Many folders may be open at once, each by a query of its own.
constexpr int mostOpenFiles = 16;
constexpr std::uint64_t stepsToCopy = 500;  // a row, for the watch of its query

// What is not there is no failure.
HRESULT Traced(const leveldb::Status& status, const wm::TraceId& failure) {
    const HRESULT result = FromStatus(status);
    if (Failed(result) && result != hr::notFound)
        wm::Trace(failure, result, status.ToString());
    return result;
}

leveldb::ReadOptions MakeReadOptions(const leveldb::Snapshot* snapshot = nullptr) {
    leveldb::ReadOptions options;
    options.verify_checksums = false;
    options.fill_cache = false;
    options.snapshot = snapshot;
    return options;
}

// A state of the database, for as long as somebody reads it.
class HeldSnapshot {
public:
    explicit HeldSnapshot(leveldb::DB& db) : db_(db), snapshot_(db.GetSnapshot()) {}
    ~HeldSnapshot() { db_.ReleaseSnapshot(snapshot_); }
    HeldSnapshot(const HeldSnapshot&) = delete;
    HeldSnapshot& operator=(const HeldSnapshot&) = delete;
    const leveldb::Snapshot* Get() const noexcept { return snapshot_; }

private:
    leveldb::DB& db_;
    const leveldb::Snapshot* const snapshot_;
};

// The library's form of a batch, of half a megabyte mostly. It grows by doubling and copying, so
// that a thread keeps its memory for the next one, unless it was unusually large.
std::unique_ptr<leveldb::WriteBatch>& SpareBatch() noexcept {
    thread_local std::unique_ptr<leveldb::WriteBatch> spare;
    return spare;
}
constexpr std::size_t largestSpareBatch = std::size_t{1} << 20;  // bytes

// What can't be read is left out of a walk or ends it like the end of the data; only a report
// tells.
void TellDamage(const leveldb::Iterator& iterator) {
    const leveldb::Status status = iterator.status();
    if (status.ok())
        return;
    const HRESULT result = Traced(status, wm::message::walkMetDamage);
    wm::ReportError(result, wm::reportLabel::damagedData, "Status", status.ToString().c_str());
}

// What the library can't read of a log it drops while it opens the database, and says so in its own
// protocol alone, which it begins anew each time.
void TellDroppedRecords(const std::string& protocol) {
    // Parts of a log, or one that can't be opened.
    const std::size_t told =
        std::min(protocol.find(": dropping "), protocol.find("Ignoring error "));
    if (told == std::string::npos)
        return;
    const std::size_t line = protocol.rfind('\n', told) + 1;
    wm::ReportError(hr::corrupt, wm::reportLabel::damagedData, "Log",
                    protocol.substr(line, protocol.find('\n', told) - line).c_str());
}

}  // namespace

class LevelDbInstance::Place {
public:
    explicit Place(leveldb::DB& db)
        : snapshot(db), row(db.NewIterator(MakeReadOptions(snapshot.Get()))) {}

    const HeldSnapshot snapshot;
    const std::unique_ptr<leveldb::Iterator> row;  // goes ahead of its snapshot
};

struct LevelDbInstance::Cursor : Place {
    using Place::Place;
};

// A walk teaches when it goes over all primary rows: it begins with the first, and goes on until
// there is no further one. The beginning is asked for only once a row was in the range, so that the
// many short walks of a question for one hour pay nothing.
class LevelDbInstance::Lesson {
public:
    Lesson(leveldb::DB& db, FolderMemory* memory, std::string_view startKey)
        : db_(db),
          memory_(memory != nullptr && startKey.starts_with(primaryPrefix) && memory->WantsFacts()
                      ? memory
                      : nullptr) {}

    // A row that the sink has gone on from. Where memory is short nothing is learnt.
    void Add(const leveldb::Slice& key, const leveldb::ReadOptions& options) noexcept {
        if (memory_ == nullptr)
            return;
        try {
            if (!std::exchange(hasBegun_, true) && !IsFirst(key, options))
                memory_ = nullptr;
            else
                facts_.Add({key.data(), key.size()});
        } catch (const std::bad_alloc&) {
            memory_ = nullptr;
        }
    }
    // Where the walk has ended.
    void End(const leveldb::Iterator& row) noexcept {
        // A table that couldn't be read is passed over by the library, and told here alone.
        const bool isWhole =
            row.status().ok() && (!row.Valid() || !row.key().starts_with({&primaryPrefix, 1}));
        if (memory_ == nullptr || !hasBegun_ || !isWhole)
            return;
        IgnoreResult(AtBoundary([this] {
                         memory_->Learn(facts_.Finish());
                         return hr::ok;
                     }),
                     "the next walk learns as well");
    }

private:
    bool IsFirst(const leveldb::Slice& key, const leveldb::ReadOptions& options) const {
        const std::unique_ptr<leveldb::Iterator> first(db_.NewIterator(options));
        if (!first)
            return false;
        first->Seek({&primaryPrefix, 1});
        return first->Valid() && first->status().ok() && first->key() == key;
    }

    leveldb::DB& db_;
    FolderMemory* memory_;  // null when nothing is to be learnt
    bool hasBegun_ = false;
    FactsCollector facts_;
};

LevelDbInstance::LevelDbInstance(std::wstring path, std::shared_ptr<FolderMemory> memory)
    : path_(std::move(path)), memory_(std::move(memory)) {
    if (!wm::ToUtf8(path_, narrowPath_))
        narrowPath_.clear();
}

LevelDbInstance::~LevelDbInstance() {
    ReleaseCursor();
    if (db_)
        Close();
}

void LevelDbInstance::Close() noexcept {
    if (readingEnv_)
        return db_.reset();
    if (!movedTo_.empty()) {
        db_.reset();
        RemoveDatabase(movedTo_);
        return;
    }
    const wm::Hold hold(gate_->lock);
    if (memory_)
        memory_->BeforeClose();
    db_.reset();
    if (memory_)
        memory_->AfterClose();
    gate_->SetClosed();
    if (deleteOnClose_)
        gate_->Remove();
}

void LevelDbInstance::DeleteOnClose() noexcept {
    IgnoreResult(AtBoundary([this] {
                     const wm::Hold hold(gate_->lock);
                     if (deleteOnClose_)
                         return hr::ok;
                     deleteOnClose_ = true;
                     if (!HasDatabaseName(path_))
                         return hr::ok;
                     const HRESULT moved = MoveAway();
                     if (Succeeded(moved))
                         gate_->SetClosed();  // the place is free for another database
                     return moved;
                 }),
                 "the folder keeps its place until the last user lets go");
}

HRESULT LevelDbInstance::MoveAway() {
    std::wstring place = PlaceForRemoval(path_);
    const HRESULT moved = env_->MoveTo(place);
    if (Failed(moved))
        return moved;
    movedTo_ = std::move(place);
    return hr::ok;
}

HRESULT LevelDbInstance::CauseOf(HRESULT result) const noexcept {
    const HRESULT want = env_->Want();
    return Failed(result) && Failed(want) ? want : result;
}

HRESULT LevelDbInstance::Open(IfMissing ifMissing) {
    if (narrowPath_.empty())
        return hr::invalidArgument;
    gate_ = FolderGate::For(path_);
    const wm::Hold hold(gate_->lock);
    gate_->AwaitClosed();
    const HRESULT allowed = gate_->CheckOpen(ifMissing);
    if (Failed(allowed)) {
        wm::Trace(wm::message::databaseRefused, allowed, narrowPath_);
        return allowed;
    }
    if (memory_)
        memory_->BeforeOpen();
    env_ = std::make_unique<FolderEnv>(narrowPath_);
    leveldb::Options options;
    options.env = env_.get();
    options.create_if_missing = ifMissing == IfMissing::create;
    options.max_open_files = mostOpenFiles;
    if (const std::size_t blockSize = blockSize_.load(std::memory_order_relaxed))
        options.block_size = blockSize;
    leveldb::DB* opened = nullptr;
    const leveldb::Status status = leveldb::DB::Open(options, narrowPath_, &opened);
    if (status.ok() && opened != nullptr) {
        db_.reset(opened);
        gate_->SetOpen(weak_from_this());
        if (memory_)
            memory_->AfterOpen();
        std::string protocol;
        if (Succeeded(wm::ReadWholeFile(wm::JoinPath(path_, L"LOG"), &protocol)))
            TellDroppedRecords(protocol);
        return hr::ok;
    }
    if (memory_)
        memory_->Forget();
    const HRESULT result = Traced(status, wm::message::databaseNotOpened);
    // Another process may have been faster since the check; that is no broken device.
    if (result == hr::deviceError && gate_->IsOpenElsewhere())
        return hr::sharingViolation;
    return Failed(result) ? CauseOf(result) : hr::fail;
}

HRESULT LevelDbInstance::OpenForReading() {
    if (narrowPath_.empty())
        return hr::invalidArgument;
    const std::shared_ptr<FolderGate> gate = FolderGate::For(path_);
    const wm::Hold hold(gate->lock);
    gate->AwaitClosed();
    HRESULT result = gate->CheckRead();
    if (Failed(result) || Failed(result = ReadingEnv::Take(path_, &readingEnv_)))
        return result;
    leveldb::Options options;
    options.env = readingEnv_.get();
    options.max_open_files = mostOpenFiles;
    leveldb::DB* opened = nullptr;
    result = Traced(leveldb::DB::Open(options, narrowPath_, &opened), wm::message::databaseNotRead);
    db_.reset(opened);
    readingEnv_->Seal();
    if (Succeeded(result))
        TellDroppedRecords(readingEnv_->Protocol());
    return result;
}

HRESULT LevelDbInstance::Write(const RecordBatch& batch) {
    if (!db_)
        return hr::unexpected;
    if (readingEnv_)
        return hr::accessDenied;
    if (memory_)
        memory_->NoteWrite();
    std::unique_ptr<leveldb::WriteBatch> writes = std::move(SpareBatch());
    if (writes == nullptr)
        writes = std::make_unique<leveldb::WriteBatch>();
    writes->Clear();
    for (const auto& [key, value] : batch)
        writes->Put(key, value);
    leveldb::WriteOptions options;
    // The log goes to the system with each write, and from there to the disk at its own time.
    // Waiting for it would cost more than all the rest of the write.
    options.sync = false;
    const HRESULT result = Traced(db_->Write(options, writes.get()), wm::message::batchNotWritten);
    if (Failed(result))
        isBroken_.store(true, std::memory_order_release);
    if (writes->ApproximateSize() <= largestSpareBatch)
        SpareBatch() = std::move(writes);
    return CauseOf(result);
}

HRESULT LevelDbInstance::Get(const std::string& key, std::string* value) {
    if (!db_)
        return hr::unexpected;
    return Traced(db_->Get(MakeReadOptions(), key, value), wm::message::recordNotRead);
}

std::shared_ptr<LevelDbInstance::Place> LevelDbInstance::Seek(const std::string& startKey) {
    auto place = std::make_shared<Place>(*db_);
    if (!place->row)
        return nullptr;
    place->row->Seek(startKey);
    return place;
}

HRESULT LevelDbInstance::Scan(const std::string& startKey, IQuerySink* sink, HANDLE stopEvent,
                              HANDLE pauseEvent, bool* keepGoing, std::shared_ptr<Place> place) {
    if (startKey.empty() || sink == nullptr || stopEvent == InvalidHandle())
        return hr::invalidArgument;
    if (!db_)
        return hr::unexpected;
    RunningWalk walk(stopEvent, pauseEvent);
    if (!walk.IsReady() || (!place && !(place = Seek(startKey))))
        return hr::outOfMemory;
    const leveldb::ReadOptions options = MakeReadOptions(place->snapshot.Get());
    const HRESULT attached = sink->Attach(db_.get(), options);
    if (Failed(attached))
        return attached;
    EndWatch* const watch = EndWatch::OfThread();
    Lesson lesson(*db_, memory_.get(), startKey);
    leveldb::Iterator& row = *place->row;
    for (; row.Valid(); row.Next()) {
        if (!walk.MayGoOn())
            return hr::aborted;
        const leveldb::Slice key = row.key(), value = row.value();
        const RowResult answer = sink->OnRecord(key, value, keepGoing);
        if (answer == RowResult::endDatabase)
            break;
        if (answer == RowResult::abandonDatabase)
            return hr::fail;
        lesson.Add(key, options);
        if (watch != nullptr && watch->Spend(key.size() + value.size()))
            return hr::aborted;
    }
    lesson.End(row);
    TellDamage(row);
    return hr::ok;
}

leveldb::Iterator* LevelDbInstance::GetCursorLocked() {
    if (!cursor_)
        cursor_ = std::make_unique<Cursor>(*db_);
    return cursor_->row.get();
}

HRESULT LevelDbInstance::ReadPrefix(std::string_view prefix, std::vector<std::string>* values) {
    if (!db_)
        return hr::unexpected;
    const leveldb::Slice start(prefix.data(), prefix.size());
    const wm::Hold hold(cursorLock_);
    leveldb::Iterator* const cursor = GetCursorLocked();
    if (cursor == nullptr)
        return hr::outOfMemory;
    leveldb::Iterator& row = *cursor;
    for (row.Seek(start); row.Valid() && row.key().starts_with(start); row.Next()) {
        if (SpendOfThread(stepsToCopy + row.value().size()))
            return hr::aborted;
        values->emplace_back(row.value().data(), row.value().size());
    }
    TellDamage(row);
    return hr::ok;
}

HRESULT LevelDbInstance::ReadSilentPrefix(std::string_view prefix, bool* hasOther, bool collect,
                                          std::vector<std::string>* values) {
    if (!db_)
        return hr::unexpected;
    *hasOther = false;
    const leveldb::Slice start(prefix.data(), prefix.size());
    const wm::Hold hold(cursorLock_);
    leveldb::Iterator* const cursor = GetCursorLocked();
    if (cursor == nullptr)
        return hr::outOfMemory;
    leveldb::Iterator& row = *cursor;
    constexpr std::string_view flagName = KeyFieldName(KeyField::silentEnrichment);
    // One key holder for all rows, so that nothing is allocated for each.
    KeyFields fields;
    for (row.Seek(start); row.Valid() && row.key().starts_with(start); row.Next()) {
        if (SpendOfThread(stepsToCopy + row.value().size()))
            return hr::aborted;
        std::string_view flag;
        SplitKeyFields({row.key().data(), row.key().size()}, &fields);
        // A key without the mark counts as silent.
        if (Succeeded(GetKeyField(fields, flagName, &flag)) && flag != "1") {
            *hasOther = true;
            values->clear();
            return hr::ok;
        }
        if (collect)
            values->emplace_back(row.value().data(), row.value().size());
    }
    TellDamage(row);
    return hr::ok;
}

void LevelDbInstance::ReleaseCursor() {
    const wm::Hold hold(cursorLock_);
    cursor_.reset();
}

}  // namespace ZEL
