#pragma once

#include <string>
#include <string_view>

#include "common/asciicase.h"

namespace ZEL {

// Makes a text stand for itself inside a regular expression. A | comes out as \|) with a bracket
// that nothing opens; stored queries rely on what such an expression does, so it stays. What may be
// a wildcard elsewhere, * and ?, is left as it stands: no name on Windows holds one.
std::wstring EscapeForPattern(std::wstring_view text);

// The form that a table's pattern or replacement has for paths that are regular expressions
// themselves: where it names one backslash (written as two), it names two. Made from the one table
// when it is compiled, so that plain paths and patterns can't come to differ.
std::wstring WithDoubledSeparators(std::wstring_view expression);

// ASCII letters alone are folded. So the result does not depend on the locale of the process, and
// keys that were made with it stay comparable.
std::wstring UpperAscii(std::wstring_view text);

}  // namespace ZEL
