#include <windows.h>
// The other needs it first.
#include <sddl.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include "../platform.h"
#include "common/textbridge.h"
#include "openfile.h"

// Files by handles. Every open goes to what stands at the path itself, never through a link.
//
// A file that somebody has open can't be replaced, whatever he shares. Readers of what is replaced
// here are through in a moment, so that a replacement tries for some time before it gives up.

namespace wm::platform {

namespace {

constexpr DWORD patienceMs = 1000, lookAgainMs = 10;

bool IsRegular(const OpenFile& file) noexcept {
    BY_HANDLE_FILE_INFORMATION info{};
    return ::GetFileType(file.Handle()) == FILE_TYPE_DISK && file.Tell(&info) &&
           TellRegular(info.dwFileAttributes);
}

std::error_code CheckRegular(const OpenFile& file) noexcept {
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
// what is made inside a folder has the same. The account owns it, too, where the system would name
// all administrators. Null attributes, which would inherit, are never given: who can't tell its own
// account makes nothing.
class PrivateAccess {
public:
    PrivateAccess() {
        const std::wstring own = OwnSid();
        if (own.empty())
            return;
        const std::wstring text = L"O:" + own + L"D:P(A;OICI;FA;;;" + own + L")";
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

// Over a file that somebody may have open for the moment.
std::error_code MoveOver(const std::wstring& from, const std::string& file) {
    constexpr DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    const std::wstring to = WidePath(file);
    for (DWORD waitedMs = 0;; waitedMs += lookAgainMs) {
        if (::MoveFileExW(from.c_str(), to.c_str(), flags) != 0)
            return {};
        const std::error_code error = LastError();
        const bool isInUse =
            error.value() == ERROR_SHARING_VIOLATION || error.value() == ERROR_ACCESS_DENIED;
        if (!isInUse || waitedMs >= patienceMs || KindOf(file) != Kind::file)
            return error;
        ::Sleep(lookAgainMs);
    }
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
    const OpenFile file(name, FILE_READ_ATTRIBUTES, shareAll, OPEN_ALWAYS, openItself,
                        access.Get());
    return file.IsOpen() ? CheckRegular(file) : LastError();
}

std::error_code ReadFile(const std::string& file, std::string* text) {
    const OpenFile in(WidePath(file), GENERIC_READ);
    if (!in.IsOpen())
        return LastError();
    if (const std::error_code error = CheckRegular(in))
        return error;
    text->clear();
    return ErrorUnless(ReadAll(
        in.Handle(), [text](const char* bytes, DWORD count) { text->append(bytes, count); }));
}

bool CanRead(const std::string& file) {
    const OpenFile in(WidePath(file), GENERIC_READ);
    return in.IsOpen() && ReadAll(in.Handle(), [](const char*, DWORD) {});
}

// A process has as many handles as memory allows.
bool CanOpenFiles(std::size_t) noexcept {
    return true;
}

std::error_code FileSize(const std::string& path, std::uint64_t* bytes) {
    BY_HANDLE_FILE_INFORMATION info{};
    const OpenFile file(WidePath(path), FILE_READ_ATTRIBUTES, shareAll, OPEN_EXISTING,
                        FILE_FLAG_BACKUP_SEMANTICS);
    *bytes = 0;
    if (!file.IsOpen() || !file.Tell(&info))
        return LastError();
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return std::make_error_code(std::errc::is_a_directory);
    *bytes = Join(info.nFileSizeHigh, info.nFileSizeLow);
    return {};
}

std::error_code MapFile(const std::string& file, FileBytes* out) {
    const OpenFile in(WidePath(file), GENERIC_READ);
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
    if (KindOf(directory) != Kind::folder)
        return std::make_error_code(std::errc::not_a_directory);
    return ForEachEntry(directory, [names](const std::string& name, Kind kind) {
        if (kind == Kind::file)
            names->push_back(name);
    });
}

// The files themselves are asked: of one that is being written a listing tells what was.
std::error_code ListFileStates(const std::string& directory, std::vector<FileState>* files) {
    std::vector<std::string> names;
    if (const std::error_code error = ListFiles(directory, &names))
        return error;
    for (std::string& name : names) {
        BY_HANDLE_FILE_INFORMATION info{};
        const OpenFile file(WidePath(Below(directory, name)), FILE_READ_ATTRIBUTES);
        if (!file.IsOpen() || !file.Tell(&info))
            return LastError();
        files->push_back({std::move(name), Join(info.nFileSizeHigh, info.nFileSizeLow),
                          static_cast<std::int64_t>(Join(info.ftLastWriteTime.dwHighDateTime,
                                                         info.ftLastWriteTime.dwLowDateTime))});
    }
    return {};
}

bool CanMakeFilesIn(const std::string& directory) {
    return OpenFile(WidePath(directory), FILE_ADD_FILE, shareAll, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS)
        .IsOpen();
}

std::error_code ReplaceWholeFile(const std::string& file, const std::string& text) {
    const std::wstring fresh = FreshNameFor(WidePath(file));
    PrivateAccess access;
    if (!access.IsKnown())
        return std::make_error_code(std::errc::permission_denied);
    OpenFile out(fresh, GENERIC_WRITE, 0, CREATE_NEW, openItself, access.Get());
    if (!out.IsOpen())
        return LastError();
    std::error_code error =
        ErrorUnless(WriteAll(out.Handle(), text) && ::FlushFileBuffers(out.Handle()) != 0);
    if (!out.Close() && !error)
        error = LastError();
    if (!error)
        error = MoveOver(fresh, file);
    if (error)
        ::DeleteFileW(fresh.c_str());
    return error;
}

// Whoever holds such a lock has the file open without sharing it.
bool IsLockedByAnotherProcess(const std::string& file) {
    const OpenFile opened(WidePath(file), GENERIC_READ | GENERIC_WRITE, 0);
    return !opened.IsOpen() && ::GetLastError() == ERROR_SHARING_VIOLATION;
}

std::error_code AvailableBytes(const std::string& path, std::uint64_t* bytes) {
    ULARGE_INTEGER available{};
    // A share has to end in a separator.
    const std::wstring name = WidePath(Below(path, ""));
    if (::GetDiskFreeSpaceExW(name.c_str(), &available, nullptr, nullptr) == 0)
        return LastError();
    *bytes = available.QuadPart;
    return {};
}

}  // namespace wm::platform
