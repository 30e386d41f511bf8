#pragma once

namespace ZEL {

// Case is folded for ASCII alone, whatever the locale: other bytes of UTF-8 stay as they are.
constexpr char ToUpperAscii(char c) noexcept {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace ZEL
