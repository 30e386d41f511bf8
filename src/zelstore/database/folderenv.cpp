#include "zelstore/database/folderenv.h"

#include <memory>
#include <utility>

#include "common/filesystem.h"
#include "common/textbridge.h"

// Between the library and the system. The library tells a failed call by a text alone, and that of
// its own thread only when the next batch is written; so the cause is kept here, where the call is
// made. Calls whose failure the library passes over (its protocol, the removal of old files) don't
// count: they are no reason for a write to fail.
//
// A database that is to go while somebody reads it is moved, not removed: its folder gets a name
// that no database has, in one step, and the names that the library knows lead there from then on.

namespace ZEL {

namespace {

constexpr char lockName[] = "/LOCK";

bool IsWant(HRESULT result) noexcept {
    return result == hr::diskFull || result == hr::tooManyOpenFiles || result == hr::outOfMemory ||
           result == hr::accessDenied;
}

bool IsRegular(const std::string& path) {
    std::wstring wide;
    return wm::ToWide(path, wide) && wm::IsRegularFile(wide);
}

// Neither a lack of room nor damage, so that nothing is given up for it.
leveldb::Status NoRegularFile(const std::string& path) {
    return leveldb::Status::InvalidArgument(path, "no regular file");
}

// A file being written, whose failures are noted.
class NotedFile final : public leveldb::WritableFile {
public:
    NotedFile(leveldb::WritableFile* file, FolderEnv& env) noexcept : file_(file), env_(env) {}

    leveldb::Status Append(const leveldb::Slice& data) override {
        return env_.Noted(file_->Append(data));
    }
    leveldb::Status Close() override { return env_.Noted(file_->Close()); }
    leveldb::Status Flush() override { return env_.Noted(file_->Flush()); }
    leveldb::Status Sync() override { return env_.Noted(file_->Sync()); }

private:
    const std::unique_ptr<leveldb::WritableFile> file_;
    FolderEnv& env_;
};

}  // namespace

// The library keeps it until it closes the database; what it stands for changes with a move.
class FolderEnv::HeldLock final : public leveldb::FileLock {
public:
    explicit HeldLock(leveldb::FileLock* taken) noexcept : lock(taken) {}
    leveldb::FileLock* lock;  // null when it could not be taken again
};

FolderEnv::FolderEnv(std::string folder)
    : leveldb::EnvWrapper(leveldb::Env::Default()), folder_(std::move(folder)) {}

leveldb::Status FolderEnv::Noted(leveldb::Status status) noexcept {
    if (status.IsIOError())
        KeepWant(wm::LastSystemError());
    return status;
}

void FolderEnv::KeepWant(HRESULT cause) noexcept {
    if (IsWant(cause))
        want_.store(cause, std::memory_order_relaxed);
}

std::string FolderEnv::PlaceOf(const std::string& name) const {
    const bool isInside =
        name.starts_with(folder_) && (name.size() == folder_.size() || name[folder_.size()] == '/');
    return movedTo_.empty() || !isInside ? name : movedTo_ + name.substr(folder_.size());
}

template <typename Operation>
auto FolderEnv::InPlace(const std::string& name, Operation&& operation) {
    const wm::HoldShared hold(moveLock_);
    return operation(PlaceOf(name));
}

leveldb::Status FolderEnv::MakePrivate(const std::string& path) const {
    std::wstring wide;
    const HRESULT made = wm::ToWide(path, wide) ? wm::MakePrivateFile(wide) : hr::invalidArgument;
    // With any other failure the library's own attempt says what it is.
    return made == hr::invalidArgument ? NoRegularFile(path) : leveldb::Status::OK();
}

leveldb::Status FolderEnv::NewSequentialFile(const std::string& name,
                                             leveldb::SequentialFile** file) {
    return InPlace(name, [&](const std::string& path) {
        return IsRegular(path) || !target()->FileExists(path)
                   ? Noted(target()->NewSequentialFile(path, file))
                   : NoRegularFile(path);
    });
}

leveldb::Status FolderEnv::NewRandomAccessFile(const std::string& name,
                                               leveldb::RandomAccessFile** file) {
    return InPlace(name, [&](const std::string& path) {
        return IsRegular(path) || !target()->FileExists(path)
                   ? Noted(target()->NewRandomAccessFile(path, file))
                   : NoRegularFile(path);
    });
}

leveldb::Status FolderEnv::NewWritableFile(const std::string& name, leveldb::WritableFile** file) {
    return InPlace(name, [&](const std::string& path) {
        leveldb::Status status = MakePrivate(path);
        if (status.ok())
            status = Noted(target()->NewWritableFile(path, file));
        if (status.ok())
            *file = new NotedFile(*file, *this);
        return status;
    });
}

leveldb::Status FolderEnv::NewAppendableFile(const std::string& name,
                                             leveldb::WritableFile** file) {
    return InPlace(name, [&](const std::string& path) {
        leveldb::Status status = MakePrivate(path);
        if (status.ok())
            status = Noted(target()->NewAppendableFile(path, file));
        if (status.ok())
            *file = new NotedFile(*file, *this);
        return status;
    });
}

bool FolderEnv::FileExists(const std::string& name) {
    return InPlace(name, [&](const std::string& path) { return target()->FileExists(path); });
}

leveldb::Status FolderEnv::GetChildren(const std::string& name, std::vector<std::string>* names) {
    return InPlace(name,
                   [&](const std::string& path) { return target()->GetChildren(path, names); });
}

leveldb::Status FolderEnv::RemoveFile(const std::string& name) {
    return InPlace(name, [&](const std::string& path) { return target()->RemoveFile(path); });
}

leveldb::Status FolderEnv::CreateDir(const std::string& name) {
    return InPlace(name, [&](const std::string& path) {
        std::wstring wide;
        const HRESULT made =
            wm::ToWide(path, wide) ? wm::MakePrivateFolder(wide) : hr::invalidArgument;
        KeepWant(made);
        return Failed(made) ? leveldb::Status::IOError(path, "the folder can't be made")
                            : leveldb::Status::OK();
    });
}

leveldb::Status FolderEnv::RemoveDir(const std::string& name) {
    return InPlace(name, [&](const std::string& path) { return target()->RemoveDir(path); });
}

leveldb::Status FolderEnv::GetFileSize(const std::string& name, std::uint64_t* bytes) {
    return InPlace(name,
                   [&](const std::string& path) { return target()->GetFileSize(path, bytes); });
}

leveldb::Status FolderEnv::RenameFile(const std::string& from, const std::string& to) {
    const wm::HoldShared hold(moveLock_);
    const leveldb::Status status = target()->RenameFile(PlaceOf(from), PlaceOf(to));
    return to.ends_with("/CURRENT") ? Noted(status) : status;
}

leveldb::Status FolderEnv::LockFile(const std::string& name, leveldb::FileLock** lock) {
    const wm::HoldExclusive hold(moveLock_);
    const std::string path = PlaceOf(name);
    leveldb::Status status = MakePrivate(path);
    if (status.ok())
        status = Noted(target()->LockFile(path, lock));
    if (status.ok())
        *lock = held_ = new HeldLock(*lock);
    return status;
}

leveldb::Status FolderEnv::UnlockFile(leveldb::FileLock* lock) {
    const wm::HoldExclusive hold(moveLock_);
    const std::unique_ptr<HeldLock> held(static_cast<HeldLock*>(lock));
    if (held.get() == held_)
        held_ = nullptr;
    return held->lock != nullptr ? target()->UnlockFile(held->lock) : leveldb::Status::OK();
}

leveldb::Status FolderEnv::NewLogger(const std::string& name, leveldb::Logger** logger) {
    return InPlace(name, [&](const std::string& path) {
        const leveldb::Status status = MakePrivate(path);
        return status.ok() ? target()->NewLogger(path, logger) : status;
    });
}

HRESULT FolderEnv::MoveTo(const std::wstring& newFolder) {
    std::wstring from;
    std::string to;
    if (!wm::ToUtf8(newFolder, to))
        return hr::invalidArgument;
    const wm::HoldExclusive hold(moveLock_);
    if (!wm::ToWide(movedTo_.empty() ? folder_ : movedTo_, from))
        return hr::invalidArgument;
    // Behind a link that has taken the folder's place stands somebody else's folder.
    const HRESULT renamed = wm::IsLink(from) ? hr::fail : wm::Rename(from, newFolder);
    if (Failed(renamed))
        return renamed;
    movedTo_ = std::move(to);
    if (held_ == nullptr)
        return hr::ok;
    // A lock is known by its file's name, which the next database in this place will need.
    leveldb::FileLock* const former = std::exchange(held_->lock, nullptr);
    if (former == nullptr || !target()->UnlockFile(former).ok() ||
        !target()->LockFile(movedTo_ + lockName, &held_->lock).ok())
        held_->lock = nullptr;
    return hr::ok;
}

}  // namespace ZEL
