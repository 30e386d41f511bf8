#include <windows.h>
// The other needs it first.
#include <sddl.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include "../platform.h"
#include "common/textbridge.h"
#include "widepath.h"

// Files by handles. Every open goes to what stands at the path itself, never through a link, and
// shares all that it can, so that a reader keeps nobody from replacing or removing the file.

namespace wm::platform {

namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class File {
public:
    File(const std::wstring& path, DWORD access, DWORD share, DWORD creation,
         SECURITY_ATTRIBUTES* security = nullptr) noexcept
        : handle_(::CreateFileW(path.c_str(), access, share, security, creation,
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

bool IsRegular(const File& file) noexcept {
    BY_HANDLE_FILE_INFORMATION info{};
    return ::GetFileType(file.Handle()) == FILE_TYPE_DISK &&
           ::GetFileInformationByHandle(file.Handle(), &info) != 0 &&
           TellRegular(info.dwFileAttributes);
}

std::error_code CheckRegular(const File& file) noexcept {
    return IsRegular(file) ? std::error_code() : std::make_error_code(std::errc::invalid_argument);
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

// Calls `take` with each piece of a file. False when it can't be read to its end.
template <typename Take>
bool ReadAll(::HANDLE file, Take&& take) {
    char buffer[16384];
    DWORD got = 0;
    do {
        if (::ReadFile(file, buffer, sizeof buffer, &got, nullptr) == 0)
            return false;
        take(buffer, got);
    } while (got != 0);
    return true;
}

// Access for the account of the process alone: nothing is inherited from the folder around, and
// what is made inside a folder has the same. Null attributes, which would inherit, are never given:
// who can't tell its own account makes nothing.
class PrivateAccess {
public:
    PrivateAccess() {
        const std::wstring own = OwnSid();
        if (own.empty())
            return;
        const std::wstring text = L"D:P(A;OICI;FA;;;" + own + L")";
        if (::ConvertStringSecurityDescriptorToSecurityDescriptorW(
                text.c_str(), SDDL_REVISION_1, &attributes_.lpSecurityDescriptor, nullptr) == 0)
            attributes_.lpSecurityDescriptor = nullptr;
    }
    ~PrivateAccess() { ::LocalFree(attributes_.lpSecurityDescriptor); }
    PrivateAccess(const PrivateAccess&) = delete;
    PrivateAccess& operator=(const PrivateAccess&) = delete;

    bool IsKnown() const noexcept { return attributes_.lpSecurityDescriptor != nullptr; }
    SECURITY_ATTRIBUTES* Get() noexcept { return &attributes_; }

private:
    static std::wstring OwnSid() {
        alignas(TOKEN_USER) char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
        ::HANDLE token = nullptr;
        DWORD size = 0;
        if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) == 0)
            return {};
        const bool isTold =
            ::GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size) != 0;
        ::CloseHandle(token);
        wchar_t* text = nullptr;
        if (!isTold ||
            ::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &text) == 0)
            return {};
        const std::unique_ptr<void, decltype(&::LocalFree)> freeing(text, ::LocalFree);
        return text;
    }

    SECURITY_ATTRIBUTES attributes_{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

// A name of its own for each writer: two of them never write into one file.
std::wstring FreshNameFor(const std::wstring& file) {
    static std::atomic<std::uint32_t> count{0};
    return file + L"." + std::to_wstring(::GetCurrentProcessId()) + L"-" +
           std::to_wstring(::GetTickCount64()) + L"-" + std::to_wstring(++count);
}

// Calls `visit` for each regular file, with its name, of a folder that is no link.
template <typename Visit>
std::error_code ForEachFile(const std::string& directory, Visit&& visit) {
    WIN32_FIND_DATAW entry{};
    const std::wstring folder = WidePath(directory);
    if (KindOf(directory) != Kind::folder)
        return std::make_error_code(std::errc::not_a_directory);
    const ::HANDLE listing = ::FindFirstFileW((folder + L"\\*").c_str(), &entry);
    if (listing == INVALID_HANDLE_VALUE)
        return LastError();
    const std::unique_ptr<void, decltype(&::FindClose)> closing(listing, ::FindClose);
    do {
        std::string name;
        if (TellRegular(entry.dwFileAttributes) && ToUtf8(entry.cFileName, name))
            visit(std::move(name), entry);
    } while (::FindNextFileW(listing, &entry) != 0);
    return ErrorUnless(::GetLastError() == ERROR_NO_MORE_FILES);
}

std::uint64_t Join(DWORD high, DWORD low) noexcept {
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

}  // namespace

std::error_code LastError() noexcept {
    return {static_cast<int>(::GetLastError()), std::system_category()};
}

std::error_code MakePrivate(const std::string& path, Made what) {
    const std::wstring name = WidePath(path);
    PrivateAccess access;
    if (!access.IsKnown())
        return std::make_error_code(std::errc::permission_denied);
    if (what == Made::folder)
        return ErrorUnless(::CreateDirectoryW(name.c_str(), access.Get()) != 0 ||
                           ::GetLastError() == ERROR_ALREADY_EXISTS);
    const File file(name, FILE_READ_ATTRIBUTES, shareAll, OPEN_ALWAYS, access.Get());
    return file.IsOpen() ? CheckRegular(file) : LastError();
}

std::error_code ReadFile(const std::string& file, std::string* text) {
    const File in(WidePath(file), GENERIC_READ, shareAll, OPEN_EXISTING);
    if (!in.IsOpen())
        return LastError();
    if (const std::error_code error = CheckRegular(in))
        return error;
    text->clear();
    return ErrorUnless(ReadAll(
        in.Handle(), [text](const char* bytes, DWORD count) { text->append(bytes, count); }));
}

bool CanRead(const std::string& file) {
    const File in(WidePath(file), GENERIC_READ, shareAll, OPEN_EXISTING);
    return in.IsOpen() && ReadAll(in.Handle(), [](const char*, DWORD) {});
}

// A process has as many handles as memory allows.
bool CanOpenFiles(std::size_t) noexcept {
    return true;
}

std::error_code FileSize(const std::string& path, std::uint64_t* bytes) {
    LARGE_INTEGER size{};
    const ::HANDLE opened =
        ::CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES, shareAll, nullptr,
                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    *bytes = 0;
    if (opened == INVALID_HANDLE_VALUE)
        return LastError();
    const std::error_code error = ErrorUnless(::GetFileSizeEx(opened, &size) != 0);
    ::CloseHandle(opened);
    *bytes = static_cast<std::uint64_t>(size.QuadPart);
    return error;
}

std::error_code MapFile(const std::string& file, FileBytes* out) {
    const File in(WidePath(file), GENERIC_READ, shareAll, OPEN_EXISTING);
    LARGE_INTEGER bytes{};
    *out = {};
    if (!in.IsOpen())
        return LastError();
    if (const std::error_code error = CheckRegular(in))
        return error;
    if (::GetFileSizeEx(in.Handle(), &bytes) == 0)
        return LastError();
    if (bytes.QuadPart == 0)
        return {};
    const ::HANDLE mapping =
        ::CreateFileMappingW(in.Handle(), nullptr, PAGE_READONLY, 0, 0, nullptr);
    const void* const start =
        mapping != nullptr ? ::MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
    const std::error_code error = ErrorUnless(start != nullptr);
    if (mapping != nullptr)
        ::CloseHandle(mapping);  // the view keeps it
    if (error)
        return error;
    out->keeper.reset(start, [](const void* mapped) { ::UnmapViewOfFile(mapped); });
    out->bytes = {static_cast<const char*>(start), static_cast<std::size_t>(bytes.QuadPart)};
    return {};
}

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

bool CanMakeFilesIn(const std::string& directory) {
    const ::HANDLE folder =
        ::CreateFileW(WidePath(directory).c_str(), FILE_ADD_FILE, shareAll, nullptr, OPEN_EXISTING,
                      FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    return folder != INVALID_HANDLE_VALUE && ::CloseHandle(folder) != 0;
}

std::error_code ReplaceFile(const std::string& file, const std::string& text) {
    const std::wstring path = WidePath(file);
    const std::wstring fresh = FreshNameFor(path);
    PrivateAccess access;
    if (!access.IsKnown())
        return std::make_error_code(std::errc::permission_denied);
    File out(fresh, GENERIC_WRITE, 0, CREATE_NEW, access.Get());
    if (!out.IsOpen())
        return LastError();
    std::error_code error =
        ErrorUnless(WriteAll(out.Handle(), text) && ::FlushFileBuffers(out.Handle()) != 0);
    if (!out.Close() && !error)
        error = LastError();
    if (!error)
        error = ErrorUnless(::MoveFileExW(fresh.c_str(), path.c_str(),
                                          MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0);
    if (error)
        ::DeleteFileW(fresh.c_str());
    return error;
}

// Whoever holds such a lock has the file open without sharing it.
bool IsLockedByAnotherProcess(const std::string& file) {
    const File opened(WidePath(file), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING);
    return !opened.IsOpen() && ::GetLastError() == ERROR_SHARING_VIOLATION;
}

std::error_code AvailableBytes(const std::string& path, std::uint64_t* bytes) {
    ULARGE_INTEGER available{};
    const std::wstring name = WidePath(path);
    if (::GetDiskFreeSpaceExW(name.c_str(), &available, nullptr, nullptr) == 0)
        return LastError();
    *bytes = available.QuadPart;
    return {};
}

}  // namespace wm::platform
