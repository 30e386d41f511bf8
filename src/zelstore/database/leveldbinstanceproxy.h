#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/lock.h"
#include "common/result.h"
#include "zelstore/database/izeldbimpl.h"
#include "zelstore/database/layout.h"

namespace ZEL {

class FolderFacts;
class FolderMemory;
class LevelDbInstance;

// The size of a database is estimated from its table files and from the records written since these
// were counted. The figures presume the library's usual tables and are fixed.
inline constexpr std::uint64_t bytesPerTableFile = 0x180000;
inline constexpr std::uint64_t bytesPerRecord = 768;
inline constexpr std::uint64_t databaseLimitBytes = 0x7800000;  // 80 table files
inline constexpr std::uint64_t recountCeilingBytes = 0x8200000;

// A folder's entry in the catalog: always there and cheap. It opens the database when somebody
// comes and lets it close behind the last one, unless a hold keeps it open.
//
// Owned through shared pointers; may be used by any thread. A proxy that has left the catalog still
// serves those who have it. A failure to open changes nothing: the next operation tries again.
class LevelDbInstanceProxy {
public:
    // Opens nothing; counts the table files. One that reads alone never opens the folder otherwise,
    // and is not to be written.
    explicit LevelDbInstanceProxy(std::wstring path, StoreUse use = StoreUse::readWrite);
    ~LevelDbInstanceProxy();
    LevelDbInstanceProxy(const LevelDbInstanceProxy&) = delete;
    LevelDbInstanceProxy& operator=(const LevelDbInstanceProxy&) = delete;

    const std::wstring& Path() const noexcept { return path_; }
    const std::wstring& Date() const noexcept { return date_; }
    std::uint32_t Number() const noexcept { return number_; }

    // The database when it is open now, else null.
    std::shared_ptr<LevelDbInstance> PeekInstance();
    // Opens it when needed. Threads that ask at the same time get the same instance. With
    // IfMissing::fail it is for reading: where LevelDB can't write what an opening writes, for want
    // of room or because the folder is closed to writing, the instance refuses writes and serves
    // readers alone, those who come before the next writer.
    HRESULT GetInstance(std::shared_ptr<LevelDbInstance>* out, IfMissing ifMissing);

    // What an earlier walk over all rows has learnt of the folder, if it is closed and none of its
    // files has changed; else null.
    std::shared_ptr<const FolderFacts> Recall();

    // Opens the database to be written, when needed, and keeps it open until as many calls of
    // Release.
    HRESULT Hold(IfMissing ifMissing);
    // Ends one hold; without any, lets a kept instance go. The snapshot that prefix reads share is
    // dropped on demand.
    enum class Cursor { keep, drop };
    void Release(Cursor cursor = Cursor::keep);

    // A write that is under way keeps the folder from being chosen for deletion.
    void BeginWrite() noexcept { writesUnderWay_.fetch_add(1, std::memory_order_relaxed); }
    void EndWrite() noexcept { writesUnderWay_.fetch_sub(1, std::memory_order_release); }
    bool IsBeingWritten() const noexcept {
        return writesUnderWay_.load(std::memory_order_acquire) != 0;
    }
    // Writes the batch, and if that fails once more with the folder opened anew. 0x80070070 without
    // a look at the database when the volume has no room for the batch. A lack of room, of
    // descriptors, of memory or of leave to write is told as such, also when only one of the two
    // attempts has met it; TellsBrokenDatabase holds for what neither had an excuse for.
    HRESULT Write(const RecordBatch& batch);
    static bool TellsBrokenDatabase(HRESULT result) noexcept {
        return result == hr::corrupt || result == hr::deviceError;
    }
    // Whether the last write failed and the folder can't be opened anew, since somebody reads it.
    bool IsHeldByReader() const noexcept { return isHeldByReader_.load(std::memory_order_relaxed); }

    // Gives the folder up: it goes at once, or when the last user of the open database lets go.
    // Nothing is opened here any more: the result is then 0x80070490.
    void MarkForDeletion();
    bool IsGone() const noexcept { return isGone_.load(std::memory_order_acquire); }

    // Counts the table files. A folder that can't be listed counts none. Counters are estimates: a
    // write at the same time may be left out.
    void RecountSize() noexcept;
    std::uint64_t EstimatedBytes() const noexcept;  // from the last count
    std::uint64_t RecordsSinceCount() const noexcept;
    // Records that may be written before the next count is due.
    std::uint64_t RecountBudget() const noexcept;

private:
    // What is given must be dropped after the lock is released: the last one closes the database.
    std::shared_ptr<LevelDbInstance> PeekInstanceLocked() REQUIRES(lock_);
    HRESULT GetInstanceLocked(std::shared_ptr<LevelDbInstance>* out, IfMissing ifMissing)
        REQUIRES(lock_);
    // 0x80070490 for a folder that was given up.
    HRESULT GetReaderLocked(std::shared_ptr<LevelDbInstance>* out) REQUIRES(lock_);
    // Whether opening the folder in the ordinary way would need what there is not.
    bool MustReadAlone() const;
    HRESULT CreateInstanceLocked(std::shared_ptr<LevelDbInstance>* out, IfMissing ifMissing)
        REQUIRES(lock_);
    // Counts the records whatever the database then says: the estimate may be too large, not too
    // small.
    HRESULT WriteOnce(const RecordBatch& batch) REQUIRES(writeLock_);
    // An instance that no write has failed on.
    HRESULT GetSoundInstance(std::shared_ptr<LevelDbInstance>* out) REQUIRES(writeLock_);

    const StoreUse use_;
    const std::wstring path_;
    const std::wstring store_;
    const std::wstring date_;
    const std::uint32_t number_;
    const std::shared_ptr<FolderMemory> memory_;
    std::atomic<std::uint64_t> estimatedBytes_{0};
    std::atomic<std::uint64_t> recordsSinceCount_{0};
    std::atomic<std::uint64_t> recountBudget_{0};
    std::atomic<std::int32_t> writesUnderWay_{0};
    std::atomic<bool> isHeldByReader_{false};
    std::atomic<bool> isGone_{false};
    // One batch at a time: nothing may be appended to a log behind a batch that failed.
    wm::Lock writeLock_{wm::LockRank::proxyWrite};
    // Held while the database is opened, so that it is opened once.
    wm::Lock lock_{wm::LockRank::proxy};
    std::weak_ptr<LevelDbInstance> instance_ GUARDED_BY(lock_);
    // Sees the folder as it stood; forgotten when somebody may write.
    std::weak_ptr<LevelDbInstance> reader_ GUARDED_BY(lock_);
    std::shared_ptr<LevelDbInstance> heldInstance_ GUARDED_BY(lock_);
    std::int32_t holdCount_ GUARDED_BY(lock_) = 0;
};

// The estimate in bytes; counts the tables anew when the budget of records has been used up.
std::uint64_t EstimatedSize(LevelDbInstanceProxy& proxy) noexcept;

}  // namespace ZEL
