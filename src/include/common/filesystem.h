#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "common/wmapi.h"

// The few questions that the store asks the file system. Paths are wide. No operation follows a
// symbolic link or reparse point, save that the data store directory itself may be one, and reading
// leaves a file's time of reading alone where the system lets this user. Any thread may ask. A
// failure of the system comes as its Win32 code, such as 0x80070003 for a missing path.
namespace wm {

// `directory` and `name`, with one separator of the platform between them.
WMLIB_API std::wstring JoinPath(const std::wstring& directory, std::wstring_view name);
// What stands behind the last separator. Empty for a path that ends in a separator.
WMLIB_API std::wstring LastPathComponent(const std::wstring& path);

// Follows a link at `path` itself.
WMLIB_API bool IsDirectory(const std::wstring& path) noexcept;
// Whatever it is: a link that leads nowhere exists as well.
WMLIB_API bool FileExists(const std::wstring& path) noexcept;
WMLIB_API bool IsRegularFile(const std::wstring& path) noexcept;
// Whether `path` itself is a symbolic link or reparse point.
WMLIB_API bool IsLink(const std::wstring& path) noexcept;

// Full paths of the entries of `directory` that are themselves directories, in the order of the
// listing. Names that are not UTF-8 are passed over and traced.
WMLIB_API ZEL::HRESULT ListDirectories(const std::wstring& directory,
                                       std::vector<std::wstring>& out);
// Full paths of the regular files of `directory`; those whose names are not UTF-8 are left out.
WMLIB_API ZEL::HRESULT ListFiles(const std::wstring& directory, std::vector<std::wstring>& out);
// Names of all entries of `directory`. One that is not UTF-8 comes as "?".
WMLIB_API ZEL::HRESULT ListNames(const std::wstring& directory, std::vector<std::wstring>& out);
// A regular file as it was when it was looked at.
struct FileState {
    std::string name;  // UTF-8
    std::uint64_t bytes = 0;
    std::int64_t changed = 0;  // when it was written last, in ticks of the system's file clock
    bool operator==(const FileState&) const = default;
};
// The regular files of `directory`, in the order of their names; those whose names are not UTF-8
// are left out. A directory that can't be listed, or is a link, and a file that vanishes meanwhile,
// are failures.
WMLIB_API ZEL::HRESULT ListFileStates(const std::wstring& directory, std::vector<FileState>& out);
// Regular files in `directory` whose names end in `suffix`, compared exactly. A directory that
// can't be listed, or is a link, counts 0.
WMLIB_API std::uint64_t CountFiles(const std::wstring& directory,
                                   std::wstring_view suffix) noexcept;
// Whether all such files can be read to their ends, which is tried. What can't be listed holds
// none.
WMLIB_API bool CanReadFiles(const std::wstring& directory, std::wstring_view suffix) noexcept;
// Where the system puts what a check of a volume has found; it stands in the volume's root.
inline constexpr std::wstring_view foundBySystem = L"lost+found";
// Sum of the logical sizes of all files below `path`. What vanishes during the walk, `path`
// included, counts 0. So does, with a trace, what this user may not read, and foundBySystem.
WMLIB_API ZEL::HRESULT FolderSize(const std::wstring& path, std::uint64_t* totalBytes) noexcept;
// Makes an empty file, or a folder, with access for its owner alone, whatever the process's mask
// for modes says. What is there already stays as it is and is success; a file has to be regular.
WMLIB_API ZEL::HRESULT MakePrivateFile(const std::wstring& path) noexcept;
WMLIB_API ZEL::HRESULT MakePrivateFolder(const std::wstring& path) noexcept;
// Gives a file or folder another name, on the same volume. A file that has the new name already is
// replaced; a folder only when it is empty.
WMLIB_API ZEL::HRESULT Rename(const std::wstring& from, const std::wstring& to) noexcept;
// The logical size in bytes, 0 on failure. Follows a link at `path` itself.
WMLIB_API ZEL::HRESULT FileSize(const std::wstring& path, std::uint64_t* bytes) noexcept;
// Removes a folder and all in it. A missing folder is success.
WMLIB_API ZEL::HRESULT RemoveTree(const std::wstring& path) noexcept;

// A whole file of moderate size, such as settings.
WMLIB_API ZEL::HRESULT ReadWholeFile(const std::wstring& path, std::string* text);

// Bytes of a file, and what keeps them: they can be read while somebody holds `keeper`.
struct FileBytes {
    std::shared_ptr<const void> keeper;
    std::string_view bytes;
};
// Maps a regular file as long as it is now. That needs no memory and no descriptor, and outlives
// the file's removal. Bytes that the device can't give, or that somebody has cut off meanwhile, end
// the process that reads them, as with every mapping.
WMLIB_API ZEL::HRESULT MapFile(const std::wstring& path, FileBytes* out);

// Puts `text` in place of the file, which is made with access for its owner alone. At every moment
// there is either the former file or the new one, also after a crash.
WMLIB_API ZEL::HRESULT ReplaceWholeFile(const std::wstring& path, const std::string& text);

// Whether this user may make files in `directory`, and its volume takes any.
WMLIB_API bool CanMakeFilesIn(const std::wstring& directory) noexcept;

// Why this thread's latest call of the system failed.
WMLIB_API ZEL::HRESULT LastSystemError() noexcept;
// Whether this process can still open `count` (at most 64) files at once.
WMLIB_API bool CanOpenFiles(std::size_t count) noexcept;

// Whether another process holds the advisory lock on `file`. Never call it for a file that this
// process has locked: on POSIX the check would drop that lock.
WMLIB_API bool IsLockedByAnotherProcess(const std::wstring& file) noexcept;

}  // namespace wm
