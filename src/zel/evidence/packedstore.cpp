#include "zel/evidence/packedstore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "common/foldernames.h"
#include "records/input/archive.h"
#include "records/input/unpack.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// An archive is a stranger's: no name in it becomes a path. Only what has the form DATABASE/FILE
// behind whatever folders is taken, and both parts have to be names such as a store's own, so that
// nothing can point out of the folder. Links are no plain files and never get here.

namespace zel {

namespace fs = std::filesystem;

namespace {

// More than any store that a purge looks after; beyond it somebody wants to fill a disk.
constexpr std::uint64_t mostBytes = 64ULL << 30;
// What others on the volume are left.
constexpr std::uint64_t spareBytes = 64ULL << 20;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            ::close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Number() const noexcept { return number_; }

private:
    const int number_;
};

class ArchiveFile final : public ByteStream {
public:
    explicit ArchiveFile(const std::string& path)
        : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    bool IsOpen() const noexcept { return file_.Number() >= 0; }

    long Read(char* buffer, std::size_t size, std::string* error) override {
        const ssize_t got = ::read(file_.Number(), buffer, size);
        if (got < 0)
            *error = std::strerror(errno);
        return got;
    }

private:
    const Descriptor file_;
};

// Few bytes may unpack to so many that passing them over takes hours.
class UntilInterrupted final : public ByteStream {
public:
    explicit UntilInterrupted(ByteStream& inner) : inner_(inner) {}

    long Read(char* buffer, std::size_t size, std::string* error) override {
        if (!Interrupted())
            return inner_.Read(buffer, size, error);
        *error = "interrupted";
        return -1;
    }

private:
    ByteStream& inner_;
};

bool IsNameOfFile(std::string_view name) {
    return !name.empty() && name.front() != '.' &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                      c == '-' || c == '.';
           });
}

// FOLDERS/DATABASE/FILE, views into the name; FOLDERS may be empty.
struct EntryName {
    std::string_view folders, database, file;
};

bool SplitEntryName(std::string_view name, EntryName* out) {
    const std::size_t last = name.find_last_of("/\\");
    if (last == name.npos || last == 0)
        return false;
    const std::size_t before = name.find_last_of("/\\", last - 1);
    const std::size_t start = before == name.npos ? 0 : before + 1;
    *out = {name.substr(0, start), name.substr(start, last - start), name.substr(last + 1)};
    return ZEL::IsDatabaseName(out->database) && IsNameOfFile(out->file);
}

std::string MakeTemporaryFolder(std::string* problem) {
    std::error_code error;
    const fs::path below = fs::temp_directory_path(error);
    std::string made = (below / "zel-XXXXXX").string();
    if (!error && ::mkdtemp(made.data()) != nullptr)
        return made;
    *problem = "no temporary folder can be made: " + std::string(std::strerror(errno));
    return "";
}

std::uint64_t RoomIn(const std::string& folder) {
    std::error_code error;
    const fs::space_info space = fs::space(folder, error);
    const std::uint64_t free = error ? 0 : space.available;
    return std::min(mostBytes, free > spareBytes ? free - spareBytes : 0);
}

bool WriteAll(int file, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t done = ::write(file, bytes, count);
        if (done < 0 && errno != EINTR)
            return false;
        bytes += std::max<ssize_t>(done, 0);
        count -= static_cast<std::size_t>(std::max<ssize_t>(done, 0));
    }
    return true;
}

}  // namespace

// Takes one entry after the other.
class PackedStore::Entries {
public:
    explicit Entries(PackedStore& store) : store_(store), room_(RoomIn(store.directory_)) {}

    // False when no more is to be read, with words in Problem.
    bool Take(const ArchiveEntry& from, ByteStream& bytes) {
        EntryName entry;
        if (Interrupted())
            return Fail("interrupted");
        if (!SplitEntryName(from.name, &entry))
            return true;
        if (store_.files_ == 0)
            folders_ = entry.folders;
        if (entry.folders != folders_)
            return Fail("it holds more than one store: " + Told(folders_) + " and " +
                        Told(entry.folders) + "; unpack it and name one");
        const std::string database = store_.directory_ + "/" + std::string(entry.database);
        if (::mkdir(database.c_str(), S_IRWXU) != 0 && errno != EEXIST)
            return Fail(std::strerror(errno));
        ++store_.files_;
        return Write(database + "/" + std::string(entry.file), from, bytes);
    }

    const std::string& Problem() const noexcept { return problem_; }

private:
    bool Write(const std::string& path, const ArchiveEntry& from, ByteStream& bytes) {
        const Descriptor file(
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (file.Number() < 0)
            return Fail(Escaped(from.name) + ": " + std::strerror(errno));
        std::string error;
        for (;;) {
            const long got = bytes.Read(buffer_, sizeof(buffer_), &error);
            if (got < 0)
                return Fail(Escaped(from.name) + ": " + error);
            if (got == 0)
                return KeepTime(file.Number(), from.modified);
            store_.bytes_ += static_cast<std::uint64_t>(got);
            if (store_.bytes_ > room_)
                return Fail("it holds more than the " + std::to_string(room_) +
                            " bytes that there is room for in " + store_.directory_);
            if (Interrupted())
                return Fail("interrupted");
            if (!WriteAll(file.Number(), buffer_, static_cast<std::size_t>(got)))
                return Fail(store_.directory_ + ": " + std::strerror(errno));
        }
    }

    // The time of a file tells how far its store was written; a time that can't be set tells less.
    static bool KeepTime(int file, std::int64_t modified) {
        const timespec times[] = {{0, UTIME_OMIT}, {static_cast<time_t>(modified), 0}};
        if (modified != 0)
            static_cast<void>(::futimens(file, times));
        return true;
    }

    static std::string Told(std::string_view folders) {
        return folders.empty() ? "./" : Escaped(folders);
    }

    bool Fail(const std::string& problem) {
        problem_ = problem;
        return false;
    }

    PackedStore& store_;
    const std::uint64_t room_;
    std::string folders_;
    std::string problem_;
    char buffer_[1U << 16];
};

PackedStore::~PackedStore() {
    std::error_code error;
    if (!directory_.empty() && !isKept_ && (fs::remove_all(directory_, error), error))
        Say(directory_ + " can't be removed: " + error.message());
}

bool PackedStore::IsNamed(const std::string& store) {
    std::error_code error;
    return fs::is_regular_file(store, error);
}

bool PackedStore::Unpack(const std::string& archive, std::string* problem) {
    const auto fail = [&](const std::string& why) {
        *problem = "the store " + archive + " can't be unpacked: " + why;
        return false;
    };
    ArchiveFile file(archive);
    if (!file.IsOpen())
        return fail(std::strerror(errno));
    const auto asMany = [](const std::string&) { return false; };
    PeekStream packed(file);
    const std::unique_ptr<ByteStream> unpacked =
        MakeUnpacker(packed.Peek(archiveHeadSize, asMany), packed);
    UntilInterrupted all(unpacked ? *unpacked : packed);
    PeekStream bytes(all);
    if (!IsArchive(bytes.Peek(archiveHeadSize, asMany)))
        return fail("it is neither a directory nor an archive (.zip, .tar, .tar.gz, .tar.zst)");
    directory_ = MakeTemporaryFolder(problem);
    if (directory_.empty())
        return false;
    const auto entries = std::make_unique<Entries>(*this);
    std::string error;
    const ArchiveEnd end = ReadArchive(
        bytes,
        [&](const ArchiveEntry& entry, ByteStream& content) {
            return entries->Take(entry, content);
        },
        &error);
    if (end != ArchiveEnd::all)
        return fail(end == ArchiveEnd::stopped ? entries->Problem() : error);
    return files_ != 0 || fail("none of a store's folders is in it");
}

}  // namespace zel
