#include "common/patterntext.h"

#include <algorithm>

#include "common/asciicase.h"

// Texts of paths that become parts of regular expressions.

namespace ZEL {

std::wstring EscapeForPattern(std::wstring_view text) {
    std::wstring out;
    out.reserve(text.size() + text.size() / 4);
    for (const wchar_t c : text) {
        if (std::wstring_view(L"\\.$^{}[]()|+").find(c) != std::wstring_view::npos)
            out += L'\\';
        out += c;
        if (c == L'|')
            out += L')';  // told in the header
    }
    return out;
}

// Two backslashes, which name one, become four, and any other escape stays as it is.
std::wstring WithDoubledSeparators(std::wstring_view expression) {
    std::wstring out;
    for (std::size_t i = 0; i < expression.size(); ++i) {
        out += expression[i];
        if (expression.substr(i, 2) == L"\\\\") {
            out += L"\\\\\\";
            ++i;
        }
    }
    return out;
}

std::wstring UpperAscii(std::wstring_view text) {
    std::wstring out(text);
    std::transform(out.begin(), out.end(), out.begin(), ToUpperAscii<wchar_t>);
    return out;
}

}  // namespace ZEL
