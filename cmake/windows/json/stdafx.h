// In place of the JSON library's own header of this name, which brings its network with it.
#pragma once
#pragma GCC system_header

#include <cpprest/json.h>
// The other needs it first.
#include <cpprest/asyncrt_utils.h>
#include <urlmon.h>
#include <winhttp.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

// The cross compiler's C library lacks this one. Texts of numbers are ASCII.
inline double ParseWideNumber(const wchar_t* text, wchar_t**, _locale_t locale) {
    std::string narrow;
    for (; *text != L'\0'; ++text)
        narrow += static_cast<char>(*text);
    return _strtod_l(narrow.c_str(), nullptr, locale);
}
#define _wcstod_l ParseWideNumber
