#pragma once

#include <string>

namespace ZEL {

// Case is folded for ASCII alone, whatever the locale: other characters, and in UTF-8 other bytes,
// stay as they are.
template <typename Char>
constexpr Char ToUpperAscii(Char c) noexcept {
    return c >= Char('a') && c <= Char('z') ? static_cast<Char>(c - Char('a') + Char('A')) : c;
}
inline void MakeUpperAscii(std::string& text) noexcept {
    for (char& c : text)
        c = ToUpperAscii(c);
}

}  // namespace ZEL
