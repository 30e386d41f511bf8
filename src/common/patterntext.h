#pragma once

#include <string>
#include <string_view>

namespace ZEL {

// Makes a text stand for itself inside a regular expression. A | comes out as \|) with a bracket
// that nothing opens; stored queries rely on what such an expression does, so it stays.
std::wstring EscapeForPattern(std::wstring_view text);

// The form that a table's pattern or replacement has for paths that are regular expressions
// themselves: where it names one backslash (written as two), it names two.
std::wstring WithDoubledSeparators(std::wstring_view expression);

// ASCII letters alone are folded.
std::wstring UpperAscii(std::wstring_view text);
bool EqualsNoCase(std::wstring_view a, std::wstring_view b) noexcept;
bool StartsWithNoCase(std::wstring_view text, std::wstring_view start) noexcept;

}  // namespace ZEL
