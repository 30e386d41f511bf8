#pragma once

#include <windows.h>

#include <string>
#include <system_error>

#include "common/textbridge.h"

// These macros of the system would rename routines of the same names.
#undef ReplaceFile
#undef ReadFile

namespace wm::platform {

// Paths come in UTF-8. One that is not gives an empty text, which names no file.
inline std::wstring WidePath(const std::string& utf8) {
    std::wstring wide;
    return ToWide(utf8, wide) ? wide : std::wstring();
}

}  // namespace wm::platform
