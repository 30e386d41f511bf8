#include <algorithm>
#include <memory>
#include <utility>

#include "common/textbridge.h"
#include "openfile.h"

// Folders and what stands in them. The standard library would go through links here and refuse long
// paths, so the system is asked directly. All kinds of reparse points count as links: what they
// lead to is not the store's.
//
// A path that a host gives is read as the system reads paths, without dots and blanks at its end,
// and with names of devices. What a listing gives is a name as it stands, so that it is joined to a
// path in which the system reads no more.

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

std::wstring FullPath(const std::wstring& path) {
    const DWORD size = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    const DWORD length = ::GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
    full.resize(length < size ? length : 0);  // another thread may have made it longer
    return full;
}

std::wstring WidePath(const std::string& utf8) {
    constexpr std::wstring_view verbatim = L"\\\\?\\", device = L"\\\\.\\", share = L"\\\\";
    std::wstring path;
    if (!ToWide(utf8, path) || path.empty() || path.starts_with(verbatim))
        return path;
    path = FullPath(path);
    if (path.size() > 1 && path[1] == L':')
        return path.insert(0, verbatim);
    const bool isShare =
        path.starts_with(share) && !path.starts_with(device) && !path.starts_with(verbatim);
    return isShare ? path.replace(0, share.size(), L"\\\\?\\UNC\\") : path;
}

void MakeVerbatim(std::string& path) {
    if (std::string verbatim; ToUtf8(WidePath(path), verbatim) && !verbatim.empty())
        path = std::move(verbatim);
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
    const OpenFile opened(WidePath(path), FILE_READ_ATTRIBUTES, shareAll, OPEN_EXISTING,
                          FILE_FLAG_BACKUP_SEMANTICS);
    return opened.IsOpen() && opened.Tell(&info) &&
           (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::error_code ForEachEntry(const std::string& path,
                             const std::function<void(const std::string&, Kind)>& visit) {
    WIN32_FIND_DATAW entry{};
    if (path.empty())
        return SystemError(ERROR_PATH_NOT_FOUND);
    const ::HANDLE listing = ::FindFirstFileW(WidePath(Below(path, "*")).c_str(), &entry);
    // The root of an empty volume lists nothing, not even itself.
    if (listing == INVALID_HANDLE_VALUE)
        return ErrorUnless(::GetLastError() == ERROR_FILE_NOT_FOUND);
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

namespace {

// The folder is held open, which nobody else may move meanwhile: what is removed is in it, and not
// where a link leads that has taken its place.
std::error_code RemoveInside(const std::string& path) {
    BY_HANDLE_FILE_INFORMATION info{};
    const OpenFile held(WidePath(path), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        OPEN_EXISTING, openAnyItself);
    if (!held.IsOpen() || !held.Tell(&info))
        return LastError();
    if (ToKind(info.dwFileAttributes) != Kind::folder)
        return {};
    std::vector<std::string> entries;
    std::error_code worst = ForEachEntry(
        path, [&](const std::string& name, Kind) { entries.push_back(Below(path, name)); });
    for (const std::string& entry : entries)
        if (const std::error_code error = RemoveTree(entry))
            worst = error;
    return worst;
}

}  // namespace

std::error_code RemoveTree(const std::string& path) {
    std::error_code error;
    if (KindOf(path) == Kind::folder)
        error = RemoveInside(path);
    if (!error)
        error = RemoveOne(path);
    return IsMissing(error) ? std::error_code() : error;
}

}  // namespace wm::platform
