#pragma once

#include <windows.h>

#include <string>
#include <system_error>

// This macro of the system would rename a routine of the same name.
#undef ReadFile

namespace wm::platform {

// The path from its drive or share on, with the system's separators; empty when there is none.
std::wstring FullPath(const std::wstring& path);

// The form in which the system takes a path of any length and does not read anything into its
// names. Paths come in UTF-8, with either separator; one that has the form already is left as it
// is. One that is not UTF-8 gives an empty text, which names no file.
std::wstring WidePath(const std::string& utf8);

// Why this thread's latest call of the system failed, unless `succeeded`.
std::error_code ErrorUnless(bool succeeded) noexcept;

// Neither a folder, a device nor a link.
constexpr bool TellRegular(DWORD attributes) noexcept {
    constexpr DWORD others =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    return (attributes & others) == 0;
}

}  // namespace wm::platform
