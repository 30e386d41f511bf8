#include <algorithm>
#include <utility>

#include "../platform.h"
#include "common/textbridge.h"
#include "widepath.h"

namespace wm::platform {

namespace {

class File {
public:
    File(const std::wstring& path, DWORD access, DWORD share, DWORD creation) noexcept
        : handle_(::CreateFileW(path.c_str(), access, share, nullptr, creation,
                                FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)) {}
    ~File() { Close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
    ::HANDLE Handle() const noexcept { return handle_; }
    bool Close() noexcept {
        return !IsOpen() || ::CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE)) != 0;
    }

private:
    ::HANDLE handle_;
};

// Neither a folder, a device nor a link.
bool IsRegular(const File& file) noexcept {
    BY_HANDLE_FILE_INFORMATION info{};
    constexpr DWORD others =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    return ::GetFileType(file.Handle()) == FILE_TYPE_DISK &&
           ::GetFileInformationByHandle(file.Handle(), &info) != 0 &&
           (info.dwFileAttributes & others) == 0;
}

bool WriteAll(::HANDLE file, const std::string& text) noexcept {
    constexpr std::size_t mostAtOnce = 1U << 30;
    std::size_t done = 0;
    while (done < text.size()) {
        DWORD written = 0;
        const auto length = static_cast<DWORD>(std::min(text.size() - done, mostAtOnce));
        if (::WriteFile(file, text.data() + done, length, &written, nullptr) == 0)
            return false;
        done += written;
    }
    return true;
}

// A name of its own for each writer: two of them never write into one file.
std::wstring FreshNameFor(const std::wstring& file) {
    return file + L"." + std::to_wstring(::GetCurrentProcessId()) + L"-" +
           std::to_wstring(::GetCurrentThreadId());
}

}  // namespace

std::error_code LastError() noexcept {
    return {static_cast<int>(::GetLastError()), std::system_category()};
}

// The store's own folder decides who has access; what is made in it inherits that.
std::error_code MakePrivate(const std::string& path, Made what) noexcept {
    const std::wstring name = WidePath(path);
    if (what == Made::folder)
        return ::CreateDirectoryW(name.c_str(), nullptr) != 0 ||
                       ::GetLastError() == ERROR_ALREADY_EXISTS
                   ? std::error_code()
                   : LastError();
    const File file(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS);
    if (!file.IsOpen())
        return LastError();
    return IsRegular(file) ? std::error_code() : std::make_error_code(std::errc::invalid_argument);
}

std::error_code ReadFile(const std::string& file, std::string* text) {
    const File in(WidePath(file), GENERIC_READ,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING);
    if (!in.IsOpen())
        return LastError();
    if (!IsRegular(in))
        return std::make_error_code(std::errc::invalid_argument);
    text->clear();
    char buffer[4096];
    for (;;) {
        DWORD got = 0;
        if (::ReadFile(in.Handle(), buffer, sizeof buffer, &got, nullptr) == 0)
            return LastError();
        if (got == 0)
            return {};
        text->append(buffer, got);
    }
}

std::error_code MapFile(const std::string& file, FileBytes* out) {
    const File in(WidePath(file), GENERIC_READ,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING);
    LARGE_INTEGER bytes{};
    *out = {};
    if (!in.IsOpen() || ::GetFileSizeEx(in.Handle(), &bytes) == 0)
        return LastError();
    if (!IsRegular(in))
        return std::make_error_code(std::errc::invalid_argument);
    if (bytes.QuadPart == 0)
        return {};
    const ::HANDLE mapping =
        ::CreateFileMappingW(in.Handle(), nullptr, PAGE_READONLY, 0, 0, nullptr);
    const void* const start =
        mapping != nullptr ? ::MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
    const std::error_code error = start != nullptr ? std::error_code() : LastError();
    if (mapping != nullptr)
        ::CloseHandle(mapping);  // the view keeps it
    if (error)
        return error;
    out->keeper.reset(start, [](const void* mapped) { ::UnmapViewOfFile(mapped); });
    out->bytes = {static_cast<const char*>(start), static_cast<std::size_t>(bytes.QuadPart)};
    return {};
}

namespace {

// Calls `visit` for each regular file, with its name.
template <typename Visit>
std::error_code ForEachFile(const std::string& directory, Visit&& visit) {
    WIN32_FIND_DATAW entry{};
    const ::HANDLE listing = ::FindFirstFileW((WidePath(directory) + L"\\*").c_str(), &entry);
    if (listing == INVALID_HANDLE_VALUE)
        return LastError();
    constexpr DWORD others =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    do {
        std::string name;
        if ((entry.dwFileAttributes & others) == 0 && ToUtf8(entry.cFileName, name))
            visit(std::move(name), entry);
    } while (::FindNextFileW(listing, &entry) != 0);
    const DWORD end = ::GetLastError();
    ::FindClose(listing);
    return end == ERROR_NO_MORE_FILES
               ? std::error_code()
               : std::error_code(static_cast<int>(end), std::system_category());
}

std::uint64_t Join(DWORD high, DWORD low) noexcept {
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

}  // namespace

std::error_code ListFiles(const std::string& directory, std::vector<std::string>* names) {
    return ForEachFile(directory, [names](std::string name, const WIN32_FIND_DATAW&) {
        names->push_back(std::move(name));
    });
}

std::error_code ListFileStates(const std::string& directory, std::vector<FileState>* files) {
    return ForEachFile(directory, [files](std::string name, const WIN32_FIND_DATAW& entry) {
        files->push_back({std::move(name), Join(entry.nFileSizeHigh, entry.nFileSizeLow),
                          static_cast<std::int64_t>(Join(entry.ftLastWriteTime.dwHighDateTime,
                                                         entry.ftLastWriteTime.dwLowDateTime))});
    });
}

bool CanMakeFilesIn(const std::string& directory) noexcept {
    const ::HANDLE folder =
        ::CreateFileW(WidePath(directory).c_str(), FILE_ADD_FILE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    return folder != INVALID_HANDLE_VALUE && ::CloseHandle(folder) != 0;
}

// The folder of an account is closed to others already, so the file needs no access list of its
// own.
std::error_code ReplaceFile(const std::string& file, const std::string& text) {
    const std::wstring path = WidePath(file);
    const std::wstring fresh = FreshNameFor(path);
    File out(fresh, GENERIC_WRITE, 0, CREATE_ALWAYS);
    if (!out.IsOpen())
        return LastError();
    const bool written = WriteAll(out.Handle(), text) && ::FlushFileBuffers(out.Handle()) != 0;
    std::error_code error = written ? std::error_code() : LastError();
    if (!out.Close() && !error)
        error = LastError();
    if (!error && ::MoveFileExW(fresh.c_str(), path.c_str(),
                                MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0)
        return {};
    if (!error)
        error = LastError();
    ::DeleteFileW(fresh.c_str());
    return error;
}

// Whoever holds such a lock has the file open without sharing it.
bool IsLockedByAnotherProcess(const std::string& file) noexcept {
    const File opened(WidePath(file), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING);
    return !opened.IsOpen() && ::GetLastError() == ERROR_SHARING_VIOLATION;
}

std::error_code AvailableBytes(const std::string& path, std::uint64_t* bytes) noexcept {
    ULARGE_INTEGER available{};
    if (::GetDiskFreeSpaceExW(WidePath(path).c_str(), &available, nullptr, nullptr) == 0)
        return LastError();
    *bytes = available.QuadPart;
    return {};
}

}  // namespace wm::platform
