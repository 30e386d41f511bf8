#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/eventobject.h"
#include "common/lock.h"
#include "common/result.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/database/layout.h"

namespace leveldb {
class DB;
class Iterator;
}  // namespace leveldb

namespace ZEL {

class FolderEnv;
class FolderGate;
class FolderMemory;
class ReadingEnv;

// One open database. Owned through shared pointers by whoever holds or uses it; the last one to let
// go closes it, on its own thread, and removes the folder when that was asked for.
//
// May be used by any number of threads. Scans and lookups run side by side, each with a snapshot of
// its own or the current state. Prefix reads share one cursor, made at the first of them, and run
// one behind the other: they don't see what was written after that, until the cursor is released.
//
// The library's states become 0x80070490 (not found), 0x80070570 (corrupt), 0x8007045d (input or
// output failed) and 0x80004005 (all others).
class LevelDbInstance : public std::enable_shared_from_this<LevelDbInstance> {
public:
    // `memory` is told what happens to the folder, and learns from whole walks; it may be null.
    explicit LevelDbInstance(std::wstring path, std::shared_ptr<FolderMemory> memory = nullptr);
    ~LevelDbInstance();
    LevelDbInstance(const LevelDbInstance&) = delete;
    LevelDbInstance& operator=(const LevelDbInstance&) = delete;

    // The size of new tables' blocks in all folders that are opened from here on; 0 means the
    // library's own.
    static void SetBlockSize(std::size_t bytes) noexcept {
        blockSize_.store(bytes, std::memory_order_relaxed);
    }

    // To be called before any other thread has the object. 0x80070020 when another process has the
    // folder open, 0x8007045d when an instance of this one has. With IfMissing::fail nothing is
    // made in a folder without a database, and the result is 0x80004005.
    HRESULT Open(IfMissing ifMissing);
    // The same for an instance that changes nothing on disk and sees the folder as it stands now
    // (ReadingEnv). It doesn't take the folder: others may open it, and write or remove it.
    HRESULT OpenForReading();

    // 0x80070005 when opened for reading. Writes all records at once or none. They survive a crash
    // of the process, not of the system.
    // A failure leaves the database broken: 0x80070070, 0x80070004, 0x8007000e or 0x80070005 when
    // it came from want of room, descriptors, memory or leave to write, also when the library met
    // that earlier in the background.
    HRESULT Write(const RecordBatch& batch);
    // Whether a write has failed. Reads go on, writes need the folder to be opened anew: the
    // library refuses them from some failures on, and would lose them behind others.
    bool IsBroken() const noexcept { return isBroken_.load(std::memory_order_acquire); }
    // The value under the key as it is now. 0x80070490, which is not traced, when there is none.
    HRESULT Get(const std::string& key, std::string* value);

    // A snapshot, and the place in it where a walk begins. It must go before the instance, and may
    // be made on one thread and used on another.
    class Place;
    // Null when there can be none.
    std::shared_ptr<Place> Seek(const std::string& startKey);
    // Hands all rows from `startKey` on to the sink. 0x80004004 when stopped or aborted: that is
    // looked at before each 1000th row, and there the scan also waits while `pauseEvent` is reset.
    // 0x80004005 when the sink abandons the database. A place that was sought before, for the same
    // key, saves the search.
    HRESULT Scan(const std::string& startKey, IQuerySink* sink, HANDLE stopEvent, HANDLE pauseEvent,
                 bool* keepGoing, std::shared_ptr<Place> place = nullptr);

    // Appends the values of all keys that begin with `prefix`.
    HRESULT ReadPrefix(std::string_view prefix, std::vector<std::string>* values);
    // As ReadPrefix when `collect`; a row that is not silent sets `*hasOther`, empties `values` and
    // ends the read.
    HRESULT ReadSilentPrefix(std::string_view prefix, bool* hasOther, bool collect,
                             std::vector<std::string>* values);
    // Drops the shared cursor and its snapshot, which keeps old rows from being compacted away. The
    // next prefix read makes a new one.
    void ReleaseCursor();

    // The folder goes when the last user lets go. Until then it stands under another name, so that
    // its place is free for a new database at once.
    void DeleteOnClose() noexcept;

private:
    // One walk, with what it may teach.
    class Lesson;
    // Null when there can be none.
    leveldb::Iterator* GetCursorLocked() REQUIRES(cursorLock_);
    // On the thread of the last user. Waits for what the library does in the background.
    void Close() noexcept;
    // Gives the folder its name for removal, under the gate's lock. On failure it keeps its place
    // until the last user lets go.
    HRESULT MoveAway();
    // What a failure comes from, as far as the system has told it.
    HRESULT CauseOf(HRESULT result) const noexcept;

    static inline std::atomic<std::size_t> blockSize_{0};

    const std::wstring path_;
    std::string narrowPath_;                      // UTF-8; empty when the path has no such form
    const std::shared_ptr<FolderMemory> memory_;  // or null
    std::shared_ptr<FolderGate> gate_;
    std::unique_ptr<FolderEnv> env_;          // outlives the database
    std::unique_ptr<ReadingEnv> readingEnv_;  // of one that is opened for reading
    std::unique_ptr<leveldb::DB> db_;         // set once, by Open
    std::atomic<bool> isBroken_{false};
    // Written under the gate's lock by users of the database, read when there are none any more.
    bool deleteOnClose_ = false;
    std::wstring movedTo_;  // empty while the folder stands in its place
    wm::Lock cursorLock_{wm::LockRank::cursor};
    struct Cursor;
    std::unique_ptr<Cursor> cursor_ GUARDED_BY(cursorLock_);
};

}  // namespace ZEL
