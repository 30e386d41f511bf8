#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "../platform.h"

namespace wm::platform {

namespace {

class Descriptor {
public:
    explicit Descriptor(int number) noexcept : number_(number) {}
    ~Descriptor() {
        if (IsOpen())
            ::close(number_);
    }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    bool IsOpen() const noexcept { return number_ >= 0; }
    int Number() const noexcept { return number_; }
    int Leave() noexcept { return std::exchange(number_, -1); }
    bool Close() noexcept { return ::close(std::exchange(number_, -1)) == 0; }

private:
    int number_;
};

// Leaves the time of the last reading alone where the system lets this user. Without O_NONBLOCK the
// opening of a pipe would wait for its other end.
int OpenToRead(const char* path, int flags = 0) noexcept {
    flags |= O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int file = ::open(path, flags | O_NOATIME);
    return file < 0 && errno == EPERM ? ::open(path, flags) : file;
}

// Opens a regular file and tells its size.
std::error_code OpenRegular(const std::string& path, Descriptor* file, std::size_t* bytes) {
    struct stat info {};
    *file = Descriptor(OpenToRead(path.c_str()));
    if (!file->IsOpen() || ::fstat(file->Number(), &info) != 0)
        return LastError();
    if (!S_ISREG(info.st_mode))
        return std::make_error_code(std::errc::invalid_argument);
    *bytes = static_cast<std::size_t>(info.st_size);
    return {};
}

bool IsRegular(int folder, const struct dirent& entry) noexcept {
    struct stat info {};
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_REG;
    return ::fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(info.st_mode);
}

bool WriteAll(int file, const std::string& text) noexcept {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(file, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

// Makes the new name itself last. A file system that can't do this for a folder loses nothing but
// that promise, so a failure is none of the caller's.
void SyncFolderOf(const std::string& file) {
    const std::size_t separator = file.rfind('/');
    const std::string folder = separator == std::string::npos ? "." : file.substr(0, separator + 1);
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen())
        ::fsync(opened.Number());
}

}  // namespace

std::error_code LastError() noexcept {
    return {errno, std::generic_category()};
}

bool CanRead(const std::string& file) {
    const Descriptor in(OpenToRead(file.c_str()));
    char buffer[16384];
    ssize_t got = in.IsOpen() ? 1 : -1;
    while (got > 0 || (got < 0 && in.IsOpen() && errno == EINTR))
        got = ::read(in.Number(), buffer, sizeof buffer);
    return got == 0;
}

bool CanOpenFiles(std::size_t count) noexcept {
    // Asking for the limit and counting what is open would be slower than trying.
    int opened[64];
    std::size_t done = 0;
    for (; done < count; ++done) {
        opened[done] = done == 0 ? ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                                 : ::fcntl(opened[0], F_DUPFD_CLOEXEC, 0);
        if (opened[done] < 0)
            break;
    }
    for (std::size_t i = 0; i < done; ++i)
        ::close(opened[i]);
    return done == count;
}

std::error_code ReadFile(const std::string& file, std::string* text) {
    Descriptor in(-1);
    std::size_t bytes = 0;
    if (const std::error_code error = OpenRegular(file, &in, &bytes))
        return error;
    text->clear();
    text->reserve(bytes);
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(in.Number(), buffer, sizeof buffer);
        if (got == 0)
            return {};
        if (got > 0)
            text->append(buffer, static_cast<std::size_t>(got));
        else if (errno != EINTR)
            return LastError();
    }
}

std::error_code MapFile(const std::string& file, FileBytes* out) {
    Descriptor in(-1);
    std::size_t bytes = 0;
    if (const std::error_code error = OpenRegular(file, &in, &bytes))
        return error;
    *out = {};
    if (bytes == 0)
        return {};
    void* const start = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, in.Number(), 0);
    if (start == MAP_FAILED)
        return LastError();
    out->keeper.reset(start, [bytes](void* mapped) { ::munmap(mapped, bytes); });
    out->bytes = {static_cast<const char*>(start), bytes};
    return {};
}

namespace {

// Calls `visit` with the folder's descriptor and each entry. An error ends it.
template <typename Visit>
std::error_code ForEachEntry(const std::string& directory, Visit&& visit) {
    Descriptor folder(OpenToRead(directory.c_str(), O_DIRECTORY));
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(
        folder.IsOpen() ? ::fdopendir(folder.Number()) : nullptr, ::closedir);
    if (!listing)
        return LastError();
    const int number = folder.Leave();
    for (;;) {
        errno = 0;  // at the end it stays so; a look at an entry may leave another value
        const struct dirent* const entry = ::readdir(listing.get());
        if (entry == nullptr)
            return LastError();
        if (const std::error_code error = visit(number, *entry))
            return error;
    }
}

}  // namespace

std::error_code ListFiles(const std::string& directory, std::vector<std::string>* names) {
    return ForEachEntry(directory, [&](int folder, const struct dirent& entry) {
        if (IsRegular(folder, entry))
            names->emplace_back(entry.d_name);
        return std::error_code();
    });
}

std::error_code ListFileStates(const std::string& directory, std::vector<FileState>* files) {
    return ForEachEntry(directory, [&](int folder, const struct dirent& entry) {
        constexpr std::int64_t ticksPerSecond = 1'000'000'000;
        struct stat info {};
        if (::fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            return LastError();
        if (S_ISREG(info.st_mode))
            files->push_back({entry.d_name, static_cast<std::uint64_t>(info.st_size),
                              info.st_mtim.tv_sec * ticksPerSecond + info.st_mtim.tv_nsec});
        return std::error_code();
    });
}

bool CanMakeFilesIn(const std::string& directory) {
    return ::faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

std::error_code ReplaceWholeFile(const std::string& file, const std::string& text) {
    // A name of its own for each writer: two processes never write into one file.
    std::string fresh = file + ".XXXXXX";
    Descriptor out(::mkostemp(fresh.data(), O_CLOEXEC));  // access for its owner alone
    if (!out.IsOpen())
        return LastError();
    const bool written = WriteAll(out.Number(), text) && ::fsync(out.Number()) == 0 && out.Close();
    if (!written || std::rename(fresh.c_str(), file.c_str()) != 0) {
        const std::error_code error = LastError();
        ::unlink(fresh.c_str());
        return error;
    }
    SyncFolderOf(file);
    return {};
}

std::error_code MakePrivate(const std::string& path, Made what) {
    const bool isFolder = what == Made::folder;
    const mode_t mode = isFolder ? 0700 : 0600;
    const Descriptor file(
        isFolder ? -1 : ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    // The mask may have taken from the owner, too.
    if (isFolder ? ::mkdir(path.c_str(), mode) == 0 : file.IsOpen())
        return ::chmod(path.c_str(), mode) == 0 ? std::error_code() : LastError();
    struct stat info {};
    if (errno != EEXIST)
        return LastError();
    if (::lstat(path.c_str(), &info) != 0)
        return LastError();
    return isFolder || S_ISREG(info.st_mode) ? std::error_code()
                                             : std::make_error_code(std::errc::invalid_argument);
}

bool IsLockedByAnotherProcess(const std::string& file) {
    const Descriptor opened(::open(file.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    struct flock query {};
    query.l_type = F_WRLCK;
    query.l_whence = SEEK_SET;
    return opened.IsOpen() && ::fcntl(opened.Number(), F_GETLK, &query) == 0 &&
           query.l_type != F_UNLCK;
}

std::error_code AvailableBytes(const std::string& path, std::uint64_t* bytes) {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0)
        return LastError();
    *bytes = static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize;
    return {};
}

}  // namespace wm::platform
