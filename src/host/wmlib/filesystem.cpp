#include "common/filesystem.h"

#include <algorithm>

#include "common/textbridge.h"
#include "common/trace.h"
#include "platform.h"

// Files and folders by wide paths: what callers get told, on every system alike. What is asked of
// the system stands in the folder of each (platform.h), since the standard library would follow a
// link here, change a time there, and on Windows knows neither links nor long paths.
//
// A store's directory may stand where others can write, and the store may run with more rights than
// they have. So a link inside is never followed: sizes, counts and removals stop at it, reading and
// mapping refuse it, and making a private file where one stands fails rather than writing to what
// it points at. The data store directory itself may be a link, since moving the store to another
// volume that way is an administrator's own doing; hence IsDirectory, ListDirectories, ListNames
// and the two sizes follow a link at the path itself.
//
// What is to be seen whole or not at all is written beside its place under a name of its own, given
// to the disk, and then renamed over what is there. A reader has either the former file or the new
// one open, and never a part. Whatever is made has access for its owner alone from the first
// moment: narrowing it afterwards would leave a moment in which others could open it.
//
// Folders change while they are walked, since other threads and processes work in them. What has
// vanished between its listing and the question about it counts as never listed. A path that is not
// Unicode is an argument that can't be, and gives hr::invalidArgument without asking the system.

namespace wm {

namespace {

using platform::Kind;

// False for what can't be a path. The system would end it at a NUL and take another one. Platform
// paths are UTF-8, whatever the process's locale: the locale's own conversion would name another
// file.
bool ToPath(const std::wstring& text, std::string& path) {
    if (!ToUtf8(text, path) || path.find('\0') != std::string::npos)
        return false;
    platform::MakeVerbatim(path);
    return true;
}

ZEL::HRESULT ToResult(const std::error_code& error) {
    return error ? ZEL::FromWin32(platform::Win32Code(error)) : ZEL::hr::ok;
}

// What `operation` gives for a path that is one. All that can be thrown here is want of memory.
template <typename Operation>
ZEL::HRESULT OnPath(const std::wstring& path, Operation&& operation) noexcept {
    try {
        std::string native;
        return ToPath(path, native) ? ToResult(operation(native)) : ZEL::hr::invalidArgument;
    } catch (...) {
        return ZEL::hr::outOfMemory;
    }
}

// What `ask` gives for a path that is one, else false.
template <typename Question>
bool AskPath(const std::wstring& path, Question&& ask) noexcept {
    try {
        std::string native;
        return ToPath(path, native) && ask(native);
    } catch (...) {
        return false;
    }
}

constexpr std::uint32_t pathNotFound = 3, accessDenied = 5;

// Calls `visit` with the path of each regular file of a directory whose name ends in `suffix`.
// False when the directory can't be listed or is a link.
template <typename Visit>
bool ForEachFile(const std::wstring& directory, std::wstring_view suffix, Visit&& visit) {
    std::string native, ending;
    if (!ToPath(directory, native) || !ToUtf8(suffix, ending) ||
        platform::KindOf(native) == Kind::link)
        return false;
    return !platform::ForEachEntry(native, [&](const std::string& name, Kind kind) {
        if (kind == Kind::file && name.ends_with(ending))
            visit(platform::Below(native, name));
    });
}

std::error_code AddSizes(const std::string& path, std::uint64_t& total);

// What is no regular file has no size of its own: links, pipes and devices count 0. The folder of
// what a volume check has found is treated as one that may not be read, though a service that runs
// as root could: nobody but the system put anything there.
std::error_code AddEntry(const std::string& path, const std::string& name, Kind kind,
                         std::uint64_t& total) {
    std::uint64_t bytes = 0;
    if (kind == Kind::folder && std::ranges::equal(name, foundBySystem))
        return std::make_error_code(std::errc::permission_denied);
    if (kind == Kind::folder)
        return AddSizes(path, total);
    const std::error_code error =
        kind == Kind::file ? platform::FileSize(path, &bytes) : std::error_code();
    total += bytes;
    return error;
}

// The last error, when parts can't be walked. What vanishes meanwhile is no error, nor is what this
// user may not read.
bool IsPassedOver(const std::error_code& error, const std::string& path) {
    const std::uint32_t code = platform::Win32Code(error);
    if (code == accessDenied)
        Trace(message::notCounted, ZEL::hr::accessDenied, path);
    return code == accessDenied || code == pathNotFound;
}

// A failure below does not end the walk: a sum that is too small by one folder says more than none,
// and the last error is told beside it.
std::error_code AddSizes(const std::string& path, std::uint64_t& total) {
    std::error_code inside;
    const std::error_code error =
        platform::ForEachEntry(path, [&](const std::string& name, Kind kind) {
            const std::string entry = platform::Below(path, name);
            const std::error_code below = AddEntry(entry, name, kind, total);
            if (below && !IsPassedOver(below, entry))
                inside = below;
        });
    return error && !IsPassedOver(error, path) ? error : inside;
}

}  // namespace

std::string platform::Below(const std::string& path, std::string_view name) {
    const std::wstring_view separators = Separators();
    std::string below = path;
    if (path.empty() || separators.find(static_cast<wchar_t>(path.back())) == separators.npos)
        below += static_cast<char>(separators.front());
    return below.append(name);
}

// A directory that ends in a separator gets no second one, and an empty one none at all, so that a
// bare name stays relative.
std::wstring JoinPath(const std::wstring& directory, std::wstring_view name) {
    const std::wstring_view separators = platform::Separators();
    std::wstring path = directory;
    if (!path.empty() && separators.find(path.back()) == std::wstring_view::npos)
        path.push_back(separators.front());
    return path.append(name);
}

std::wstring LastPathComponent(const std::wstring& path) {
    const std::size_t separator = path.find_last_of(platform::Separators());
    return separator == std::wstring::npos ? path : path.substr(separator + 1);
}

bool IsDirectory(const std::wstring& path) noexcept {
    return AskPath(path, platform::IsDirectory);
}

bool FileExists(const std::wstring& path) noexcept {
    return AskPath(
        path, [](const std::string& native) { return platform::KindOf(native) != Kind::missing; });
}

bool IsRegularFile(const std::wstring& path) noexcept {
    return AskPath(
        path, [](const std::string& native) { return platform::KindOf(native) == Kind::file; });
}

bool IsLink(const std::wstring& path) noexcept {
    return AskPath(
        path, [](const std::string& native) { return platform::KindOf(native) == Kind::link; });
}

// What was found ahead of an error stays in `out`, which the listings add to.
ZEL::HRESULT ListDirectories(const std::wstring& directory, std::vector<std::wstring>& out) {
    std::string native;
    if (!ToPath(directory, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::ForEachEntry(native, [&](const std::string& name, Kind kind) {
        std::wstring wide;
        if (kind != Kind::folder)
            return;
        if (ToWide(name, wide))
            out.push_back(JoinPath(directory, wide));
        else
            Trace(message::folderNameNotUtf8);
    }));
}

ZEL::HRESULT ListFiles(const std::wstring& directory, std::vector<std::wstring>& out) {
    std::string native;
    std::vector<std::string> names;
    if (!ToPath(directory, native))
        return ZEL::hr::invalidArgument;
    const std::error_code error = platform::ListFiles(native, &names);
    for (const std::string& name : names) {
        std::wstring wide;
        if (ToWide(name, wide))
            out.push_back(JoinPath(directory, wide));
    }
    return ToResult(error);
}

ZEL::HRESULT ListFileStates(const std::wstring& directory, std::vector<FileState>& out) {
    std::string native;
    out.clear();
    if (!ToPath(directory, native))
        return ZEL::hr::invalidArgument;
    const std::error_code error = platform::ListFileStates(native, &out);
    std::erase_if(out, [](const FileState& file) { return !IsUtf8(file.name); });
    std::sort(out.begin(), out.end(),
              [](const FileState& a, const FileState& b) { return a.name < b.name; });
    return ToResult(error);
}

ZEL::HRESULT ListNames(const std::wstring& directory, std::vector<std::wstring>& out) {
    return OnPath(directory, [&out](const std::string& native) {
        return platform::ForEachEntry(native, [&](const std::string& name, Kind) {
            std::wstring wide;
            out.push_back(ToWide(name, wide) ? std::move(wide) : L"?");
        });
    });
}

ZEL::HRESULT FileSize(const std::wstring& path, std::uint64_t* bytes) noexcept {
    return OnPath(path,
                  [bytes](const std::string& file) { return platform::FileSize(file, bytes); });
}

std::uint64_t CountFiles(const std::wstring& directory, std::wstring_view suffix) noexcept {
    try {
        std::uint64_t count = 0;
        const bool listed = ForEachFile(directory, suffix, [&](const std::string&) { ++count; });
        return listed ? count : 0;
    } catch (...) {
        return 0;
    }
}

// Rights alone do not tell: a file with a damaged sector opens and then fails.
bool CanReadFiles(const std::wstring& directory, std::wstring_view suffix) noexcept {
    try {
        bool all = true;
        ForEachFile(directory, suffix,
                    [&](const std::string& file) { all = all && platform::CanRead(file); });
        return all;
    } catch (...) {
        return false;
    }
}

bool CanMakeFilesIn(const std::wstring& directory) noexcept {
    return AskPath(directory, platform::CanMakeFilesIn);
}

bool CanOpenFiles(std::size_t count) noexcept {
    return platform::CanOpenFiles(count);
}

ZEL::HRESULT FolderSize(const std::wstring& path, std::uint64_t* totalBytes) noexcept {
    try {
        *totalBytes = 0;
        std::string native;
        if (!ToPath(path, native))
            return ZEL::hr::invalidArgument;
        return ToResult(AddSizes(native, *totalBytes));
    } catch (...) {
        return ZEL::hr::outOfMemory;
    }
}

ZEL::HRESULT MakePrivateFile(const std::wstring& path) noexcept {
    return OnPath(path, [](const std::string& file) {
        return platform::MakePrivate(file, platform::Made::file);
    });
}

ZEL::HRESULT MakePrivateFolder(const std::wstring& path) noexcept {
    return OnPath(path, [](const std::string& folder) {
        return platform::MakePrivate(folder, platform::Made::folder);
    });
}

ZEL::HRESULT Rename(const std::wstring& from, const std::wstring& to) noexcept {
    return OnPath(from, [&to](const std::string& path) {
        std::string target;
        return ToPath(to, target) ? platform::Rename(path, target)
                                  : std::make_error_code(std::errc::invalid_argument);
    });
}

ZEL::HRESULT LastSystemError() noexcept {
    return ToResult(platform::LastError());
}

ZEL::HRESULT RemoveTree(const std::wstring& path) noexcept {
    return OnPath(path, platform::RemoveTree);
}

ZEL::HRESULT ReadWholeFile(const std::wstring& path, std::string* text) {
    std::string native;
    if (!ToPath(path, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::ReadFile(native, text));
}

ZEL::HRESULT MapFile(const std::wstring& path, FileBytes* out) {
    std::string native;
    if (!ToPath(path, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::MapFile(native, out));
}

ZEL::HRESULT ReplaceWholeFile(const std::wstring& path, const std::string& text) {
    std::string native;
    if (!ToPath(path, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::ReplaceWholeFile(native, text));
}

bool IsLockedByAnotherProcess(const std::wstring& file) noexcept {
    return AskPath(file, platform::IsLockedByAnotherProcess);
}

}  // namespace wm
