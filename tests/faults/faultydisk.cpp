// Preloaded into a program, fails one of its calls on one kind of file of a store:
//
//   ZEL_FAULT="STATE STORE CALL KIND NTH LAST ERROR"
//
// CALL is the name of the system's call; KIND is an ending of the file's name, or a beginning of
// it, such as MANIFEST, or / for a folder, or * for all below the store. Of the calls that fit,
// those from number NTH to LAST fail with ERROR (a number); a write then puts down the first half
// of what it was given. Where ERROR is 0 the process is killed ahead of the call. STATE is a file
// of two 32-bit numbers: the calls that fitted, and those that failed.
//
// System calls are made directly, so that the program may have a sanitizer's own versions of the
// same functions in front of these.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

struct State {
    std::atomic<std::uint32_t> fitted, failed;
};

struct Fault {
    char state[512], store[512], call[32], kind[32];
    unsigned nth = 0, last = 0;
    int error = 0;
    State* counters = nullptr;

    Fault() noexcept {
        const char* const text = ::getenv("ZEL_FAULT");
        if (text == nullptr || std::sscanf(text, "%511s %511s %31s %31s %u %u %d", state, store,
                                           call, kind, &nth, &last, &error) != 7)
            return;
        const long file = ::syscall(SYS_openat, AT_FDCWD, state, O_RDWR, 0);
        const long memory = ::syscall(SYS_mmap, nullptr, sizeof(State), PROT_READ | PROT_WRITE,
                                      MAP_SHARED, file, 0);
        counters = memory < 0 && memory > -4096 ? nullptr : reinterpret_cast<State*>(memory);
    }

    bool Fits(std::string_view path) const noexcept {
        if (!path.starts_with(store))
            return false;
        const std::string_view below = path.substr(std::strlen(store));
        const std::size_t separator = below.rfind('/');
        const std::string_view name = below.substr(separator + 1), wanted = kind;
        if (wanted == "*")
            return true;
        if (wanted == "/")
            return separator == 0;  // a folder of the store
        return separator != 0 && (name.ends_with(wanted) || name.starts_with(wanted));
    }
};

const Fault& TheFault() noexcept {
    static const Fault fault;
    return fault;
}

// Whether the call is to fail; errno is set then.
bool Fails(const char* call, const char* path) noexcept {
    const Fault& fault = TheFault();
    if (fault.counters == nullptr || path == nullptr || std::strcmp(call, fault.call) != 0 ||
        !fault.Fits(path))
        return false;
    const std::uint32_t number = ++fault.counters->fitted;
    if (number < fault.nth || number > fault.last)
        return false;
    ++fault.counters->failed;
    if (fault.error == 0)
        ::kill(::getpid(), SIGKILL);
    errno = fault.error;
    return true;
}

// The same for a name within an open directory.
bool Fails(const char* call, int directory, const char* name) noexcept {
    if (TheFault().counters == nullptr || std::strcmp(call, TheFault().call) != 0)
        return false;
    if (directory == AT_FDCWD || name[0] == '/')
        return Fails(call, name);
    char link[32], path[2048];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", directory);
    const long length = ::syscall(SYS_readlink, link, path, 1024);
    if (length < 0)
        return false;
    std::snprintf(path + length, sizeof(path) - static_cast<std::size_t>(length), "/%s", name);
    return Fails(call, path);
}

bool Fails(const char* call, int file) noexcept {
    if (TheFault().counters == nullptr || std::strcmp(call, TheFault().call) != 0)
        return false;
    char link[32], name[1024];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", file);
    const long length = ::syscall(SYS_readlink, link, name, sizeof(name) - 1);
    name[length > 0 ? length : 0] = '\0';
    return Fails(call, name);
}

template <typename Result = int, typename... Arguments>
Result Call(long number, Arguments... arguments) noexcept {
    return static_cast<Result>(::syscall(number, arguments...));
}

}  // namespace

#define ZEL_REPLACED extern "C" [[gnu::visibility("default")]]

ZEL_REPLACED int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(rest, unsigned) : 0;
    va_end(rest);
    return Fails("open", path) ? -1 : Call(SYS_openat, AT_FDCWD, path, flags, mode);
}

ZEL_REPLACED ssize_t write(int file, const void* data, std::size_t size) {
    if (!Fails("write", file))
        return Call<ssize_t>(SYS_write, file, data, size);
    const int error = errno;
    Call(SYS_write, file, data, size / 2);
    errno = error;
    return -1;
}

ZEL_REPLACED ssize_t read(int file, void* data, std::size_t size) {
    return Fails("read", file) ? -1 : Call<ssize_t>(SYS_read, file, data, size);
}

ZEL_REPLACED int fdatasync(int file) {
    return Fails("fdatasync", file) ? -1 : Call(SYS_fdatasync, file);
}

ZEL_REPLACED void* mmap(void* at, std::size_t size, int access, int flags, int file, off_t from) {
    if (file >= 0 && Fails("mmap", file))
        return MAP_FAILED;
    return reinterpret_cast<void*>(Call<long>(SYS_mmap, at, size, access, flags, file, from));
}

ZEL_REPLACED int rename(const char* from, const char* to) noexcept {
    return Fails("rename", to) ? -1 : Call(SYS_rename, from, to);
}

ZEL_REPLACED int unlink(const char* path) noexcept {
    return Fails("unlink", path) ? -1 : Call(SYS_unlink, path);
}

ZEL_REPLACED int unlinkat(int directory, const char* name, int flags) noexcept {
    const char* const call = (flags & AT_REMOVEDIR) != 0 ? "rmdir" : "unlink";
    return Fails(call, directory, name) ? -1 : Call(SYS_unlinkat, directory, name, flags);
}

ZEL_REPLACED int rmdir(const char* path) noexcept {
    return Fails("rmdir", path) ? -1 : Call(SYS_rmdir, path);
}

ZEL_REPLACED int remove(const char* path) noexcept {
    if (Fails("unlink", path))
        return -1;
    const int removed = Call(SYS_unlink, path);
    return removed == 0 || errno != EISDIR ? removed : ::rmdir(path);
}

ZEL_REPLACED int mkdir(const char* path, mode_t mode) noexcept {
    return Fails("mkdir", path) ? -1 : Call(SYS_mkdir, path, mode);
}
