#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "common/filesystem.h"
#include "common/itobfactory.h"

// What differs between systems. Each system has a folder of its own that defines all of this.
//
// Routines here take UTF-8 and throw only for want of memory. The rules on links and on times of
// reading are those of common/filesystem.h.
namespace wm::platform {

// Cut to what the system allows.
void NameThread(std::thread::native_handle_type thread, const char* name) noexcept;

// Milliseconds since the system started, sleep included.
std::uint64_t UptimeMs() noexcept;

// Folder of the file that this library was loaded from; empty when it can't be told.
std::wstring LibraryFolder();

// A variable of the process's environment; false when there is none.
bool EnvironmentVariable(const std::string& name, std::wstring& value);

// Signs that part the names of a path; paths are joined with the first.
std::wstring_view Separators() noexcept;

// Brings a caller's path into the form in which the system reads nothing into a name that is joined
// to it. Where it never does, the path stays.
void MakeVerbatim(std::string& path);

// A path with a name behind it, and one separator between them.
std::string Below(const std::string& path, std::string_view name);

// File name extension of a loadable component, with its dot.
const wchar_t* ComponentExtension() noexcept;

// Loads a component for the rest of the process and gives its GetFactory, null when it has no such
// export. A failure is traced.
struct LoadedLibrary {
    bool loaded = false;
    ZEL::GetFactoryFunction getFactory = nullptr;
};
LoadedLibrary LoadComponent(const std::wstring& path);

bool IsLockedByAnotherProcess(const std::string& file);

// Reads it to the end.
bool CanRead(const std::string& file);
// `count` is at most 64.
bool CanOpenFiles(std::size_t count) noexcept;

// What stands at a path or in a folder, links as themselves.
enum class Kind { missing, file, folder, link, other };
Kind KindOf(const std::string& path);
// These three follow a link at `path` itself. `visit` gets each entry's name.
bool IsDirectory(const std::string& path);
std::error_code FileSize(const std::string& path, std::uint64_t* bytes);
std::error_code ForEachEntry(const std::string& path,
                             const std::function<void(const std::string&, Kind)>& visit);
// Replaces a file that has the new name already.
std::error_code Rename(const std::string& from, const std::string& to);
// Removes links, not what they point at. What is gone already is no error.
std::error_code RemoveTree(const std::string& path);

// What ListFileStates gives, in the order of the listing.
std::error_code ListFileStates(const std::string& directory, std::vector<FileState>* files);
// Names of the regular files.
std::error_code ListFiles(const std::string& directory, std::vector<std::string>* names);
bool CanMakeFilesIn(const std::string& directory);

// A regular file, never through a link; so MapFile.
std::error_code ReadFile(const std::string& file, std::string* text);
std::error_code MapFile(const std::string& file, FileBytes* out);
// Puts a new file, with access for its owner alone, in place of `file` once the disk has it. Leaves
// nothing behind on failure.
std::error_code ReplaceWholeFile(const std::string& file, const std::string& text);

// With access for its owner alone. What is there already stays; a file has to be regular.
enum class Made { file, folder };
std::error_code MakePrivate(const std::string& path, Made what);

// Why this thread's latest call of the system failed.
std::error_code LastError() noexcept;

// Bytes that the caller may use on the volume of `path`.
std::error_code AvailableBytes(const std::string& path, std::uint64_t* bytes);

// Win32 code that is nearest to an error of the system or of its C library. What is missing is 3,
// whichever part of the path that is.
std::uint32_t Win32Code(const std::error_code& error) noexcept;

}  // namespace wm::platform
