#pragma once

#include <leveldb/env.h>

#include <atomic>
#include <string>

#include "common/lock.h"
#include "common/result.h"

namespace ZEL {

// What the library calls the system through, for one open database. It lives at least as long as
// that database and may be used by any thread, the library's own one too.
//
// Files are made for their owner alone, whatever the process's mask says, and only regular files
// are opened: a pipe in a file's place would hold its opener for ever.
class FolderEnv final : public leveldb::EnvWrapper {
public:
    // `folder` in UTF-8, as the library gets it.
    explicit FolderEnv(std::string folder);

    // What some call has lacked: 0x80070070 room, 0x80070004 descriptors, 0x8007000e memory,
    // 0x80070005 leave to write. 0 when none did. The library itself remembers only that a device
    // has failed, and its own thread may have met it long ago.
    HRESULT Want() const noexcept { return want_.load(std::memory_order_relaxed); }
    // Keeps the cause of a failure of `status` that the system has just told.
    leveldb::Status Noted(leveldb::Status status) noexcept;

    // Gives the folder another name. The database in it goes on under that one, and another may be
    // made in its former place. On failure nothing has changed.
    HRESULT MoveTo(const std::wstring& newFolder);

    // As leveldb::Env tells them. Names are those of the folder's first place.
    leveldb::Status NewSequentialFile(const std::string& name,
                                      leveldb::SequentialFile** file) override;
    leveldb::Status NewRandomAccessFile(const std::string& name,
                                        leveldb::RandomAccessFile** file) override;
    leveldb::Status NewWritableFile(const std::string& name, leveldb::WritableFile** file) override;
    leveldb::Status NewAppendableFile(const std::string& name,
                                      leveldb::WritableFile** file) override;
    bool FileExists(const std::string& name) override;
    leveldb::Status GetChildren(const std::string& name, std::vector<std::string>* names) override;
    leveldb::Status RemoveFile(const std::string& name) override;
    leveldb::Status CreateDir(const std::string& name) override;
    leveldb::Status RemoveDir(const std::string& name) override;
    leveldb::Status GetFileSize(const std::string& name, std::uint64_t* bytes) override;
    leveldb::Status RenameFile(const std::string& from, const std::string& to) override;
    leveldb::Status LockFile(const std::string& name, leveldb::FileLock** lock) override;
    leveldb::Status UnlockFile(leveldb::FileLock* lock) override;
    leveldb::Status NewLogger(const std::string& name, leveldb::Logger** logger) override;

private:
    // The library's lock on the folder, as this object can take it along when the folder moves.
    class HeldLock;

    // Calls `operation` with the name that the file has by now.
    template <typename Operation>
    auto InPlace(const std::string& name, Operation&& operation) EXCLUDES(moveLock_);
    std::string PlaceOf(const std::string& name) const REQUIRES_SHARED(moveLock_);
    // Keeps a cause that may pass by itself; all others are left to the library.
    void KeepWant(HRESULT cause) noexcept;
    // Makes the file with its owner's rights alone, unless it is there, before the library opens
    // it.
    leveldb::Status MakePrivate(const std::string& path) const;

    const std::string folder_;
    std::atomic<HRESULT> want_{hr::ok};
    wm::ReaderWriterLock moveLock_{wm::LockRank::leaf};
    std::string movedTo_ GUARDED_BY(moveLock_);       // empty when it was not moved
    HeldLock* held_ GUARDED_BY(moveLock_) = nullptr;  // the library's, while the database is open
};

}  // namespace ZEL
