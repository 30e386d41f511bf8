#include "zelstore/database/readingenv.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "common/textbridge.h"

// Taking a folder that somebody may be writing. LevelDB's writer keeps this order:
//
//   a new log is made before the first row goes there, and the former one is whole by then;
//   a table is whole before the manifest names it;
//   a file is removed only after the manifest says that it isn't needed any more, or after CURRENT
//   names another manifest.
//
// So the manifest comes first, then all tables and logs that are listed, then CURRENT and the
// manifest once more: if they are as before, nothing was removed that this manifest needs, and a
// log that has a successor among the listed ones is whole. If not, all is taken anew. The rows are
// then those that were written up to some moment, all that were written before the taking began
// among them. The end of a log or manifest may be half written; LevelDB takes that for a write that
// was cut off.
//
// Opening. LevelDB makes tables of the logs, a new manifest, an empty log. All of it stays here, in
// memory. It also wants to compact what it finds, which would take the whole database into memory:
// its first call for the background thread ends the opening, and from then on no file can be
// written. LevelDB notes that failure, and goes on reading.

namespace ZEL {

namespace {

using leveldb::Slice;
using leveldb::Status;

// Between two changes of a manifest there is the writing of a table.
constexpr int mostTakings = 100;
constexpr std::size_t mostProtocolBytes = 64 << 10;

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool IsTable(const std::string& name) {
    return name.ends_with(".ldb") || name.ends_with(".sst");
}

bool IsLog(const std::string& name) {
    return name.ends_with(".log");
}

Status ReadingAlone(const std::string& path) {
    return Status::IOError(path, "opened for reading alone");
}

wm::FileBytes KeepText(std::string text) {
    const auto keeper = std::make_shared<const std::string>(std::move(text));
    return {keeper, *keeper};
}

// Takes a file, unless it is missing or no file: that is LevelDB's to tell, which knows what it
// needs.
HRESULT TakeFile(const std::wstring& path, bool map, wm::FileBytes* out) {
    std::string text;
    const HRESULT result = map ? wm::MapFile(path, out) : wm::ReadWholeFile(path, &text);
    if (result == hr::pathNotFound || result == hr::invalidArgument)
        return hr::nothingToDo;
    if (Succeeded(result) && !map)
        *out = KeepText(std::move(text));
    return result;
}

// The manifest that CURRENT names, and both files' bytes.
struct State {
    std::string manifestName;
    wm::FileBytes current, manifest;

    bool operator==(const State& other) const {
        return current.bytes == other.current.bytes && manifest.bytes == other.manifest.bytes;
    }
};

HRESULT ReadState(const std::wstring& folder, State* state) {
    const HRESULT result = TakeFile(wm::JoinPath(folder, L"CURRENT"), false, &state->current);
    state->manifestName = state->current.bytes.substr(0, state->current.bytes.find('\n'));
    std::wstring name;
    const bool namesAFile = wm::ToWide(state->manifestName, name) && !name.empty() &&
                            wm::LastPathComponent(name) == name;
    if (Failed(result) || !namesAFile)
        return result;
    return TakeFile(wm::JoinPath(folder, name), false, &state->manifest);
}

class SequentialBytes final : public leveldb::SequentialFile {
public:
    explicit SequentialBytes(wm::FileBytes file) : file_(std::move(file)) {}
    Status Read(std::size_t size, Slice* result, char*) override {
        const std::string_view piece = file_.bytes.substr(at_, size);
        at_ += piece.size();
        *result = Slice(piece.data(), piece.size());
        return {};
    }
    Status Skip(std::uint64_t size) override {
        at_ += static_cast<std::size_t>(std::min<std::uint64_t>(size, file_.bytes.size() - at_));
        return {};
    }

private:
    const wm::FileBytes file_;
    std::size_t at_ = 0;
};

class RandomAccessBytes final : public leveldb::RandomAccessFile {
public:
    explicit RandomAccessBytes(wm::FileBytes file) : file_(std::move(file)) {}
    Status Read(std::uint64_t offset, std::size_t size, Slice* result, char*) const override {
        if (offset > file_.bytes.size() || size > file_.bytes.size() - offset)
            return Status::IOError("a table", "shorter than its parts");
        *result = Slice(file_.bytes.data() + offset, size);
        return {};
    }

private:
    const wm::FileBytes file_;
};

}  // namespace

// Written by LevelDB, and read only once it is closed.
class ReadingEnv::KeptFile final : public leveldb::WritableFile {
public:
    KeptFile(ReadingEnv& env, std::string path) : env_(env), path_(std::move(path)) {}
    Status Append(const Slice& data) override {
        // Only a row that is written comes to a new log.
        if (env_.IsSealed() || IsLog(path_))
            return ReadingAlone(path_);
        bytes_.append(data.data(), data.size());
        return {};
    }
    Status Close() override {
        env_.Keep(path_, std::move(bytes_));
        return {};
    }
    Status Flush() override { return {}; }
    Status Sync() override { return {}; }

private:
    ReadingEnv& env_;
    const std::string path_;
    std::string bytes_;
};

class ReadingEnv::KeptProtocol final : public leveldb::Logger {
public:
    explicit KeptProtocol(ReadingEnv& env) : env_(env) {}
    void Logv(const char* format, std::va_list arguments) override {
        char line[1024];
        std::vsnprintf(line, sizeof line, format, arguments);
        const wm::Hold hold(env_.lock_);
        if (env_.protocol_.size() < mostProtocolBytes)
            env_.protocol_.append(line).append("\n");
    }

private:
    ReadingEnv& env_;
};

HRESULT ReadingEnv::Take(const std::wstring& folder, std::unique_ptr<ReadingEnv>* out) {
    std::unique_ptr<ReadingEnv> fresh(new ReadingEnv);
    for (int taking = 0; taking < mostTakings; ++taking) {
        Files files;
        bool stoodStill = false;
        const HRESULT result = TakeOnce(folder, &files, &stoodStill);
        if (Failed(result))
            return result;
        if (!stoodStill)
            continue;
        {
            const wm::Hold hold(fresh->lock_);
            fresh->files_.swap(files);
        }
        *out = std::move(fresh);
        return hr::ok;
    }
    return hr::sharingViolation;
}

HRESULT ReadingEnv::TakeOnce(const std::wstring& folder, Files* files, bool* stoodStill) {
    State before, after;
    std::vector<std::wstring> names;
    HRESULT result = ReadState(folder, &before);
    if (Failed(result) || Failed(result = wm::ListNames(folder, names)))
        return result;
    for (const std::wstring& wideName : names) {
        const std::string name = wm::ToUtf8Lossy(wideName);
        const std::wstring path = wm::JoinPath(folder, wideName);
        if (!IsTable(name) && !IsLog(name))
            continue;
        // What is no file but has the name of one: a log would look as if it held nothing. A table
        // is found broken when rows are wanted of it, so that all others can be read.
        if (wm::FileExists(path) && !wm::IsRegularFile(path)) {
            if (IsLog(name))
                return hr::fail;
            (*files)[name] = KeepText("");
            continue;
        }
        wm::FileBytes file;
        result = TakeFile(path, IsTable(name), &file);
        if (Failed(result))
            return result;
        if (result == hr::ok)
            (*files)[name] = std::move(file);
    }
    result = ReadState(folder, &after);
    *stoodStill = Succeeded(result) && before == after;
    if (before.manifest.keeper)
        (*files)[before.manifestName] = std::move(before.manifest);
    if (before.current.keeper)
        (*files)["CURRENT"] = std::move(before.current);
    return result;
}

std::string ReadingEnv::Protocol() const {
    const wm::Hold hold(lock_);
    return protocol_;
}

Status ReadingEnv::Find(const std::string& path, wm::FileBytes* out) {
    const wm::Hold hold(lock_);
    const auto found = files_.find(NameOf(path));
    if (found == files_.end())
        return Status::NotFound(path, "not there when the folder was taken");
    *out = found->second;
    return {};
}

void ReadingEnv::Keep(const std::string& path, std::string bytes) {
    wm::FileBytes kept = KeepText(std::move(bytes));
    const wm::Hold hold(lock_);
    files_[NameOf(path)] = std::move(kept);
}

Status ReadingEnv::NewSequentialFile(const std::string& path, leveldb::SequentialFile** out) {
    wm::FileBytes file;
    Status found = Find(path, &file);
    *out = found.ok() ? new SequentialBytes(std::move(file)) : nullptr;
    return found;
}

Status ReadingEnv::NewRandomAccessFile(const std::string& path, leveldb::RandomAccessFile** out) {
    wm::FileBytes file;
    Status found = Find(path, &file);
    *out = found.ok() ? new RandomAccessBytes(std::move(file)) : nullptr;
    return found;
}

Status ReadingEnv::NewWritableFile(const std::string& path, leveldb::WritableFile** out) {
    *out = IsSealed() ? nullptr : new KeptFile(*this, path);
    return *out != nullptr ? Status() : ReadingAlone(path);
}

Status ReadingEnv::NewAppendableFile(const std::string& path, leveldb::WritableFile** out) {
    *out = nullptr;
    return ReadingAlone(path);
}

bool ReadingEnv::FileExists(const std::string& path) {
    wm::FileBytes file;
    return Find(path, &file).ok();
}

Status ReadingEnv::GetChildren(const std::string&, std::vector<std::string>* names) {
    names->clear();
    const wm::Hold hold(lock_);
    for (const auto& [name, file] : files_)
        names->push_back(name);
    return {};
}

Status ReadingEnv::RemoveFile(const std::string& path) {
    wm::FileBytes removed;  // let go after the lock is released
    const wm::Hold hold(lock_);
    const auto found = files_.find(NameOf(path));
    if (found != files_.end()) {
        removed = std::move(found->second);
        files_.erase(found);
    }
    return {};
}

Status ReadingEnv::RemoveDir(const std::string& path) {
    return ReadingAlone(path);
}

Status ReadingEnv::GetFileSize(const std::string& path, std::uint64_t* bytes) {
    wm::FileBytes file;
    Status found = Find(path, &file);
    *bytes = file.bytes.size();
    return found;
}

Status ReadingEnv::RenameFile(const std::string& from, const std::string& to) {
    const wm::Hold hold(lock_);
    auto entry = files_.extract(NameOf(from));
    if (entry.empty())
        return Status::NotFound(from, "not kept");
    files_[NameOf(to)] = std::move(entry.mapped());
    return {};
}

Status ReadingEnv::LockFile(const std::string&, leveldb::FileLock** lock) {
    *lock = new leveldb::FileLock;
    return {};
}

Status ReadingEnv::UnlockFile(leveldb::FileLock* lock) {
    delete lock;
    return {};
}

void ReadingEnv::Schedule(void (*work)(void*), void* argument) {
    Seal();
    Default()->Schedule(work, argument);
}

void ReadingEnv::StartThread(void (*work)(void*), void* argument) {
    Default()->StartThread(work, argument);
}

Status ReadingEnv::GetTestDirectory(std::string* path) {
    path->clear();
    return ReadingAlone("a directory");
}

Status ReadingEnv::NewLogger(const std::string&, leveldb::Logger** out) {
    *out = new KeptProtocol(*this);
    return {};
}

std::uint64_t ReadingEnv::NowMicros() {
    return Default()->NowMicros();
}

void ReadingEnv::SleepForMicroseconds(int micros) {
    Default()->SleepForMicroseconds(micros);
}

}  // namespace ZEL
