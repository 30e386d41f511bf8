#include <algorithm>
#include <memory>
#include <utility>

#include "../platform.h"
#include "common/textbridge.h"
#include "widepath.h"

// Folders and what stands in them. The standard library would go through links here and refuse long
// paths, so the system is asked directly. All kinds of reparse points count as links: what they
// lead to is not the store's.

namespace wm::platform {

namespace {

std::error_code SystemError(DWORD code) noexcept {
    return {static_cast<int>(code), std::system_category()};
}

Kind ToKind(DWORD attributes) noexcept {
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return Kind::missing;
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return Kind::link;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return Kind::folder;
    return TellRegular(attributes) ? Kind::file : Kind::other;
}

std::string Below(const std::string& path, const std::string& name) {
    return path + '\\' + name;
}

// What stands read-only is removed all the same, as elsewhere.
std::error_code RemoveOne(const std::string& path) {
    const std::wstring name = WidePath(path);
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return ErrorUnless(false);
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
        ::SetFileAttributesW(name.c_str(), attributes & ~DWORD(FILE_ATTRIBUTE_READONLY));
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return ErrorUnless(
        (isFolder ? ::RemoveDirectoryW(name.c_str()) : ::DeleteFileW(name.c_str())) != 0);
}

bool IsMissing(const std::error_code& error) noexcept {
    constexpr std::uint32_t pathNotFound = 3;
    return Win32Code(error) == pathNotFound;
}

}  // namespace

std::wstring WidePath(const std::string& utf8) {
    constexpr std::wstring_view verbatim = L"\\\\?\\", share = L"\\\\";
    std::wstring path;
    if (!ToWide(utf8, path) || path.empty() || path.starts_with(verbatim))
        return path;
    const DWORD size = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    full.resize(std::min(size, ::GetFullPathNameW(path.c_str(), size, full.data(), nullptr)));
    if (full.size() > 1 && full[1] == L':')
        return full.insert(0, verbatim);
    const bool isShare = full.starts_with(share) && !full.starts_with(L"\\\\.\\");
    return isShare ? full.replace(0, share.size(), L"\\\\?\\UNC\\") : full;
}

std::error_code ErrorUnless(bool succeeded) noexcept {
    return succeeded ? std::error_code() : LastError();
}

Kind KindOf(const std::string& path) {
    return ToKind(::GetFileAttributesW(WidePath(path).c_str()));
}

// A handle follows links; what it needs is the right to read attributes alone.
bool IsDirectory(const std::string& path) {
    BY_HANDLE_FILE_INFORMATION info{};
    const ::HANDLE opened =
        ::CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (opened == INVALID_HANDLE_VALUE)
        return false;
    const bool isKnown = ::GetFileInformationByHandle(opened, &info) != 0;
    ::CloseHandle(opened);
    return isKnown && (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::error_code ForEachEntry(const std::string& path,
                             const std::function<void(const std::string&, Kind)>& visit) {
    WIN32_FIND_DATAW entry{};
    const std::wstring folder = WidePath(path);
    if (folder.empty())
        return SystemError(ERROR_PATH_NOT_FOUND);
    const ::HANDLE listing = ::FindFirstFileW((folder + L"\\*").c_str(), &entry);
    if (listing == INVALID_HANDLE_VALUE)
        return ErrorUnless(false);
    const std::unique_ptr<void, decltype(&::FindClose)> closing(listing, ::FindClose);
    do {
        const std::wstring_view name = entry.cFileName;
        if (name == L"." || name == L"..")
            continue;
        std::string narrow;
        if (!ToUtf8(name, narrow))
            narrow = "\xFF";  // no caller takes it for a name
        visit(narrow, ToKind(entry.dwFileAttributes));
    } while (::FindNextFileW(listing, &entry) != 0);
    const DWORD end = ::GetLastError();
    return end == ERROR_NO_MORE_FILES ? std::error_code() : SystemError(end);
}

std::error_code Rename(const std::string& from, const std::string& to) {
    const std::wstring target = WidePath(to);
    if (::MoveFileExW(WidePath(from).c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING) != 0)
        return {};
    // A folder is replaced too, when it is empty.
    const std::error_code error = LastError();
    if (KindOf(from) != Kind::folder || KindOf(to) != Kind::folder ||
        ::RemoveDirectoryW(target.c_str()) == 0)
        return error;
    return ErrorUnless(::MoveFileExW(WidePath(from).c_str(), target.c_str(), 0) != 0);
}

std::error_code RemoveTree(const std::string& path) {
    std::error_code inside;
    std::vector<std::pair<std::string, Kind>> entries;
    if (KindOf(path) == Kind::folder)
        inside = ForEachEntry(path, [&](const std::string& name, Kind kind) {
            entries.emplace_back(Below(path, name), kind);
        });
    for (const auto& [entry, kind] : entries) {
        const std::error_code error = kind == Kind::folder ? RemoveTree(entry) : RemoveOne(entry);
        if (error && !IsMissing(error))
            inside = error;
    }
    const std::error_code error = inside ? inside : RemoveOne(path);
    return IsMissing(error) ? std::error_code() : error;
}

}  // namespace wm::platform
