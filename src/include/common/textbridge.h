#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/wmapi.h"

namespace wm {

// The one bridge between UTF-8 (inside) and wide text (the public boundary). Both directions are
// strict: malformed bytes, overlong forms, surrogates and values above U+10FFFF are refused with
// false, and `out` is then unspecified. Both replace what `out` held and reuse its memory.
//
// A wide text has UTF-16 on Windows and UTF-32 elsewhere. NUL is a character as any other. Only
// memory can run out, and then the ones that return a text throw.
WMLIB_API bool ToUtf8(std::wstring_view text, std::string& out);
WMLIB_API bool ToWide(std::string_view utf8, std::wstring& out);
// The same into memory of the caller with room for as many characters as `utf8` has bytes, which is
// always enough. `*length` becomes the number written; nothing is terminated.
WMLIB_API bool ToWide(std::string_view utf8, wchar_t* out, std::size_t* length) noexcept;
WMLIB_API bool IsUtf8(std::string_view bytes) noexcept;

// For messages: malformed parts become U+FFFD.
WMLIB_API std::string ToUtf8Lossy(std::wstring_view text);

}  // namespace wm
