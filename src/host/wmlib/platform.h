#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "common/itobfactory.h"

// What differs between systems. Each system has a folder of its own that defines all of this.
namespace wm::platform {

// Cut to what the system allows.
void NameThread(std::thread::native_handle_type thread, const std::string& name) noexcept;

// Milliseconds since the system started, sleep included.
std::uint64_t UptimeMs() noexcept;

// Folder of the file that this library was loaded from; empty when it can't be told.
std::wstring LibraryFolder();

// File name extension of a loadable component, with its dot.
const wchar_t* ComponentExtension() noexcept;

// Loads a component for the rest of the process and gives its GetFactory; null when it can't be
// loaded, with a trace, or has no such export.
struct LoadedLibrary {
    bool loaded = false;
    ZEL::GetFactoryFunction getFactory = nullptr;
};
LoadedLibrary LoadComponent(const std::wstring& path);

bool IsLockedByAnotherProcess(const std::string& file) noexcept;

// Makes the file with access for its owner alone, writes it and waits for the disk. Leaves no file
// behind on failure.
bool WriteAndSync(const std::string& file, const std::string& text) noexcept;

// Bytes that the caller may use on the volume of `path`. False when the system can't tell.
bool AvailableBytes(const std::string& path, std::uint64_t* bytes) noexcept;

// Win32 code that is nearest to an error of the system's C library.
std::uint32_t Win32Code(int error) noexcept;

}  // namespace wm::platform
