#include "common/filesystem.h"

#include <algorithm>
#include <filesystem>

#include "common/textbridge.h"
#include "common/trace.h"
#include "platform.h"

// Files and folders by wide paths. What the standard library can ask is asked here; where it would
// follow a link, change a time or leave a gap between a check and its use, the system's folder has
// a routine of its own (platform.h).
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
// moment, or on Windows that of the folder around it: narrowing the access afterwards would leave a
// moment in which others could open it.
//
// Folders change while they are walked, since other threads and processes work in them. What has
// vanished between its listing and the question about it counts as never listed. A path that is not
// Unicode is an argument that can't be, and gives hr::invalidArgument without asking the system.

namespace wm {

namespace fs = std::filesystem;

namespace {

// False for what can't be a path. The system would end it at a NUL and take another one. The native
// form on POSIX is UTF-8, whatever the process's locale: the locale's own conversion would name
// another file.
bool ToPath(const std::wstring& text, fs::path& path) {
    std::string narrow;
    if (!ToUtf8(text, narrow) || narrow.find('\0') != std::string::npos)
        return false;
    path = fs::path(std::u8string(narrow.begin(), narrow.end()));
    return true;
}

ZEL::HRESULT ToResult(const std::error_code& error) {
    return error ? ZEL::FromWin32(platform::Win32Code(error.value())) : ZEL::hr::ok;
}

// What `operation` gives for a path that is one. All that can be thrown here is want of memory: the
// operations take the overloads that give an error code.
template <typename Operation>
ZEL::HRESULT OnPath(const std::wstring& path, Operation&& operation) noexcept {
    try {
        fs::path native;
        return ToPath(path, native) ? ToResult(operation(native)) : ZEL::hr::invalidArgument;
    } catch (...) {
        return ZEL::hr::outOfMemory;
    }
}

// The second one comes when a folder has become a file.
bool Vanished(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
}

// Calls `visit` for each entry of a directory. What can't be listed gives the error.
template <typename Visit>
std::error_code ForEachEntry(const fs::path& directory, Visit&& visit) {
    std::error_code error;
    fs::directory_iterator it(directory, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error))
        visit(*it);
    return error;
}

// Links are entries of their own kind here, whatever they point at.
fs::file_type TypeOf(const fs::directory_entry& entry) {
    std::error_code ignored;
    return entry.symlink_status(ignored).type();
}

// Calls `visit` for each regular file of a directory whose name ends in `suffix`. False when the
// directory can't be listed or is a link.
template <typename Visit>
bool ForEachFile(const std::wstring& directory, std::wstring_view suffix, Visit&& visit) {
    fs::path native;
    std::string ending;
    if (!ToPath(directory, native) || !ToUtf8(suffix, ending) || IsLink(directory))
        return false;
    return !ForEachEntry(native, [&](const fs::directory_entry& entry) {
        if (entry.path().native().ends_with(ending) && TypeOf(entry) == fs::file_type::regular)
            visit(entry);
    });
}

std::error_code AddSizes(const fs::path& path, std::uint64_t& total);

// What is no regular file has no size of its own: links, pipes and devices count 0. The folder of
// what a volume check has found is treated as one that may not be read, though a service that runs
// as root could: nobody but the system put anything there.
std::error_code AddEntry(const fs::directory_entry& entry, std::uint64_t& total) {
    std::error_code error;
    const fs::file_type type = entry.symlink_status(error).type();
    if (type == fs::file_type::directory)
        return entry.path().filename() == foundBySystem
                   ? std::make_error_code(std::errc::permission_denied)
                   : AddSizes(entry.path(), total);
    const bool isFile = !error && type == fs::file_type::regular;
    const std::uintmax_t size = isFile ? entry.file_size(error) : 0;
    total += error ? 0 : size;
    return error;
}

// The last error, when parts can't be walked. What vanishes meanwhile is no error, nor is what this
// user may not read.
bool IsPassedOver(const std::error_code& error, const fs::path& path) {
    if (error != std::errc::permission_denied)
        return Vanished(error);
    Trace(message::notCounted, ZEL::hr::accessDenied, path.string());
    return true;
}

// A failure below does not end the walk: a sum that is too small by one folder says more than none,
// and the last error is told beside it.
std::error_code AddSizes(const fs::path& path, std::uint64_t& total) {
    std::error_code inside;
    const std::error_code error = ForEachEntry(path, [&](const fs::directory_entry& entry) {
        const std::error_code below = AddEntry(entry, total);
        if (below && !IsPassedOver(below, entry.path()))
            inside = below;
    });
    return error && !IsPassedOver(error, path) ? error : inside;
}

}  // namespace

// A directory that ends in a separator gets no second one, and an empty one none at all, so that a
// bare name stays relative.
std::wstring JoinPath(const std::wstring& directory, std::wstring_view name) {
    std::wstring path = directory;
    if (!path.empty() && path.back() != L'/')
        path.push_back(L'/');
    return path.append(name);
}

std::wstring LastPathComponent(const std::wstring& path) {
    const std::size_t separator = path.rfind(L'/');
    return separator == std::wstring::npos ? path : path.substr(separator + 1);
}

bool IsDirectory(const std::wstring& path) noexcept {
    try {
        fs::path native;
        std::error_code error;
        return ToPath(path, native) && fs::is_directory(native, error);
    } catch (...) {
        return false;
    }
}

bool FileExists(const std::wstring& path) noexcept {
    try {
        fs::path native;
        std::error_code error;
        return ToPath(path, native) && fs::exists(fs::symlink_status(native, error));
    } catch (...) {
        return false;
    }
}

bool IsRegularFile(const std::wstring& path) noexcept {
    try {
        fs::path native;
        std::error_code error;
        return ToPath(path, native) && fs::is_regular_file(fs::symlink_status(native, error));
    } catch (...) {
        return false;
    }
}

bool IsLink(const std::wstring& path) noexcept {
    try {
        fs::path native;
        std::error_code error;
        return ToPath(path, native) && fs::is_symlink(native, error);
    } catch (...) {
        return false;
    }
}

// What was found ahead of an error stays in `out`, which the listings add to.
ZEL::HRESULT ListDirectories(const std::wstring& directory, std::vector<std::wstring>& out) {
    fs::path native;
    if (!ToPath(directory, native))
        return ZEL::hr::invalidArgument;
    return ToResult(ForEachEntry(native, [&](const fs::directory_entry& entry) {
        if (TypeOf(entry) != fs::file_type::directory)
            return;
        const std::u8string name = entry.path().filename().u8string();
        std::wstring wide;
        if (ToWide({reinterpret_cast<const char*>(name.data()), name.size()}, wide))
            out.push_back(JoinPath(directory, wide));
        else
            Trace(message::folderNameNotUtf8);
    }));
}

ZEL::HRESULT ListFiles(const std::wstring& directory, std::vector<std::wstring>& out) {
    fs::path native;
    std::vector<std::string> names;
    if (!ToPath(directory, native))
        return ZEL::hr::invalidArgument;
    const std::error_code error = platform::ListFiles(native.string(), &names);
    for (const std::string& name : names) {
        std::wstring wide;
        if (ToWide(name, wide))
            out.push_back(JoinPath(directory, wide));
    }
    return ToResult(error);
}

ZEL::HRESULT ListFileStates(const std::wstring& directory, std::vector<FileState>& out) {
    fs::path native;
    out.clear();
    if (!ToPath(directory, native))
        return ZEL::hr::invalidArgument;
    const std::error_code error = platform::ListFileStates(native.string(), &out);
    std::erase_if(out, [](const FileState& file) { return !IsUtf8(file.name); });
    std::sort(out.begin(), out.end(),
              [](const FileState& a, const FileState& b) { return a.name < b.name; });
    return ToResult(error);
}

ZEL::HRESULT ListNames(const std::wstring& directory, std::vector<std::wstring>& out) {
    return OnPath(directory, [&out](const fs::path& native) {
        return ForEachEntry(native, [&](const fs::directory_entry& entry) {
            const std::u8string name = entry.path().filename().u8string();
            std::wstring wide;
            if (!ToWide({reinterpret_cast<const char*>(name.data()), name.size()}, wide))
                wide = L"?";
            out.push_back(std::move(wide));
        });
    });
}

ZEL::HRESULT FileSize(const std::wstring& path, std::uint64_t* bytes) noexcept {
    return OnPath(path, [bytes](const fs::path& file) {
        std::error_code error;
        const std::uintmax_t size = fs::file_size(file, error);
        *bytes = error ? 0 : size;
        return error;
    });
}

std::uint64_t CountFiles(const std::wstring& directory, std::wstring_view suffix) noexcept {
    try {
        std::uint64_t count = 0;
        const bool listed =
            ForEachFile(directory, suffix, [&](const fs::directory_entry&) { ++count; });
        return listed ? count : 0;
    } catch (...) {
        return 0;
    }
}

// Rights alone do not tell: a file with a damaged sector opens and then fails.
bool CanReadFiles(const std::wstring& directory, std::wstring_view suffix) noexcept {
    try {
        bool all = true;
        ForEachFile(directory, suffix, [&](const fs::directory_entry& entry) {
            all = all && platform::CanRead(entry.path().native());
        });
        return all;
    } catch (...) {
        return false;
    }
}

bool CanMakeFilesIn(const std::wstring& directory) noexcept {
    try {
        fs::path native;
        return ToPath(directory, native) && platform::CanMakeFilesIn(native.string());
    } catch (...) {
        return false;
    }
}

bool CanOpenFiles(std::size_t count) noexcept {
    return platform::CanOpenFiles(count);
}

ZEL::HRESULT FolderSize(const std::wstring& path, std::uint64_t* totalBytes) noexcept {
    try {
        *totalBytes = 0;
        fs::path native;
        if (!ToPath(path, native))
            return ZEL::hr::invalidArgument;
        return ToResult(AddSizes(native, *totalBytes));
    } catch (...) {
        return ZEL::hr::outOfMemory;
    }
}

ZEL::HRESULT MakePrivateFile(const std::wstring& path) noexcept {
    return OnPath(path, [](const fs::path& file) {
        return platform::MakePrivate(file.string(), platform::Made::file);
    });
}

ZEL::HRESULT MakePrivateFolder(const std::wstring& path) noexcept {
    return OnPath(path, [](const fs::path& folder) {
        return platform::MakePrivate(folder.string(), platform::Made::folder);
    });
}

ZEL::HRESULT Rename(const std::wstring& from, const std::wstring& to) noexcept {
    return OnPath(from, [&to](const fs::path& path) {
        fs::path target;
        std::error_code error = std::make_error_code(std::errc::invalid_argument);
        if (ToPath(to, target))
            fs::rename(path, target, error);
        return error;
    });
}

ZEL::HRESULT LastSystemError() noexcept {
    return ToResult(platform::LastError());
}

ZEL::HRESULT RemoveTree(const std::wstring& path) noexcept {
    return OnPath(path, [](const fs::path& folder) {
        std::error_code error;
        fs::remove_all(folder, error);  // removes links, not what they point at
        return error;
    });
}

ZEL::HRESULT ReadWholeFile(const std::wstring& path, std::string* text) {
    fs::path native;
    if (!ToPath(path, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::ReadFile(native.string(), text));
}

ZEL::HRESULT MapFile(const std::wstring& path, FileBytes* out) {
    fs::path native;
    if (!ToPath(path, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::MapFile(native.string(), out));
}

ZEL::HRESULT ReplaceFile(const std::wstring& path, const std::string& text) {
    fs::path native;
    if (!ToPath(path, native))
        return ZEL::hr::invalidArgument;
    return ToResult(platform::ReplaceFile(native.string(), text));
}

bool IsLockedByAnotherProcess(const std::wstring& file) noexcept {
    try {
        std::string narrow;
        return ToUtf8(file, narrow) && platform::IsLockedByAnotherProcess(narrow);
    } catch (...) {
        return false;
    }
}

}  // namespace wm
