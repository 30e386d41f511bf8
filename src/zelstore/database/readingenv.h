#pragma once

#include <leveldb/env.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "common/filesystem.h"
#include "common/lock.h"
#include "common/result.h"

namespace ZEL {

// The folder of a database as it stood at one moment, for a database that is opened to be read and
// nothing else: on disk nothing is made, locked, changed or removed, and what other processes write
// or remove afterwards is not seen.
//
// Costs. The folder's logs and manifest are read into memory and let go once LevelDB has opened the
// database; what it makes of the logs, tables of about their size, stays. While it opens it needs
// about three times the size of the logs (a writer leaves at most two, each of 4 MiB and a batch).
// Tables are mapped: they take no memory that counts and no descriptors.
//
// Any number of threads may use it, LevelDB's own among them. It has to outlive the database.
class ReadingEnv final : public leveldb::Env {
public:
    // Takes the folder as it stands. 0x80070020 when it never stood still for long enough; the
    // system's error for a file that can't be read. A missing file is LevelDB's to tell.
    static HRESULT Take(const std::wstring& folder, std::unique_ptr<ReadingEnv>* out);

    // To be called when the database is open: from here on nothing is written in memory either. The
    // database then refuses to write, and to compact.
    void Seal() noexcept { isSealed_.store(true, std::memory_order_relaxed); }
    bool IsSealed() const noexcept { return isSealed_.load(std::memory_order_relaxed); }
    // What LevelDB said so far, cut to 64 KiB.
    std::string Protocol() const;

    leveldb::Status NewSequentialFile(const std::string& path,
                                      leveldb::SequentialFile** out) override;
    leveldb::Status NewRandomAccessFile(const std::string& path,
                                        leveldb::RandomAccessFile** out) override;
    leveldb::Status NewWritableFile(const std::string& path, leveldb::WritableFile** out) override;
    leveldb::Status NewAppendableFile(const std::string& path,
                                      leveldb::WritableFile** out) override;
    bool FileExists(const std::string& path) override;
    leveldb::Status GetChildren(const std::string& folder,
                                std::vector<std::string>* names) override;
    leveldb::Status RemoveFile(const std::string& path) override;
    leveldb::Status CreateDir(const std::string&) override { return {}; }
    leveldb::Status RemoveDir(const std::string& path) override;
    leveldb::Status GetFileSize(const std::string& path, std::uint64_t* bytes) override;
    leveldb::Status RenameFile(const std::string& from, const std::string& to) override;
    leveldb::Status LockFile(const std::string& path, leveldb::FileLock** lock) override;
    leveldb::Status UnlockFile(leveldb::FileLock* lock) override;
    void Schedule(void (*work)(void*), void* argument) override;
    void StartThread(void (*work)(void*), void* argument) override;
    leveldb::Status GetTestDirectory(std::string* path) override;
    leveldb::Status NewLogger(const std::string& path, leveldb::Logger** out) override;
    std::uint64_t NowMicros() override;
    void SleepForMicroseconds(int micros) override;

private:
    class KeptFile;
    class KeptProtocol;
    using Files = std::map<std::string, wm::FileBytes>;  // by name without folder

    ReadingEnv() = default;
    static HRESULT TakeOnce(const std::wstring& folder, Files* files, bool* stoodStill);
    // A share of the file's bytes, which stay when the file is removed from the list.
    leveldb::Status Find(const std::string& path, wm::FileBytes* out);
    // Enters what LevelDB has written, under the name without its folder.
    void Keep(const std::string& path, std::string bytes);

    std::atomic<bool> isSealed_{false};
    mutable wm::Lock lock_;
    Files files_ GUARDED_BY(lock_);
    std::string protocol_ GUARDED_BY(lock_);
};

}  // namespace ZEL
