#pragma once

#include <cstdint>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "common/filesystem.h"
#include "common/itobfactory.h"

// What differs between systems. Each system has a folder of its own that defines all of this.
//
// Routines here take UTF-8 and throw only for want of memory. An error carries the number that
// Win32Code understands; the rules on links and on times of reading are those of
// common/filesystem.h.
namespace wm::platform {

// Cut to what the system allows.
void NameThread(std::thread::native_handle_type thread, const char* name) noexcept;

// Milliseconds since the system started, sleep included.
std::uint64_t UptimeMs() noexcept;

// Folder of the file that this library was loaded from; empty when it can't be told.
std::wstring LibraryFolder();

// File name extension of a loadable component, with its dot.
const wchar_t* ComponentExtension() noexcept;

// Loads a component for the rest of the process and gives its GetFactory, null when it has no such
// export. A failure is traced.
struct LoadedLibrary {
    bool loaded = false;
    ZEL::GetFactoryFunction getFactory = nullptr;
};
LoadedLibrary LoadComponent(const std::wstring& path);

bool IsLockedByAnotherProcess(const std::string& file) noexcept;

// Reads it to the end.
bool CanRead(const std::string& file) noexcept;
// `count` is at most 64.
bool CanOpenFiles(std::size_t count) noexcept;

// What ListFileStates gives, in the order of the listing.
std::error_code ListFileStates(const std::string& directory, std::vector<FileState>* files);
// Names of the regular files.
std::error_code ListFiles(const std::string& directory, std::vector<std::string>* names);
bool CanMakeFilesIn(const std::string& directory) noexcept;

// A regular file, never through a link; so MapFile.
std::error_code ReadFile(const std::string& file, std::string* text);
std::error_code MapFile(const std::string& file, FileBytes* out);
// Puts a new file, with access for its owner alone, in place of `file` once the disk has it. Leaves
// nothing behind on failure.
std::error_code ReplaceFile(const std::string& file, const std::string& text);

// With access for its owner alone. What is there already stays; a file has to be regular.
enum class Made { file, folder };
std::error_code MakePrivate(const std::string& path, Made what) noexcept;

// Why this thread's latest call of the system failed.
std::error_code LastError() noexcept;

// Bytes that the caller may use on the volume of `path`.
std::error_code AvailableBytes(const std::string& path, std::uint64_t* bytes) noexcept;

// Win32 code that is nearest to an error of the system's C library.
std::uint32_t Win32Code(int error) noexcept;

}  // namespace wm::platform
