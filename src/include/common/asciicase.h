#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace ZEL {

// Case is folded for ASCII alone, whatever the locale: other characters, and in UTF-8 other bytes,
// stay as they are. Names that are compared without case have to compare alike on every machine
// that reads a store, and a locale is a setting of the machine.
template <typename Char>
constexpr Char ToUpperAscii(Char c) noexcept {
    return c >= Char('a') && c <= Char('z') ? static_cast<Char>(c - Char('a') + Char('A')) : c;
}
// In place; the length never changes, so that positions in the text stay good.
inline void MakeUpperAscii(std::string& text) noexcept {
    for (char& c : text)
        c = ToUpperAscii(c);
}

// Both arguments are texts, or views of them, of the same kind of character. An empty start begins
// every text.
template <typename Text>
bool StartsWithNoCase(const Text& text, std::basic_string_view<typename Text::value_type> start) {
    return text.size() >= start.size() &&
           std::equal(start.begin(), start.end(), text.begin(),
                      [](auto x, auto y) { return ToUpperAscii(x) == ToUpperAscii(y); });
}

// As a predicate for searching lists of a few names; a table of many is better keyed by the
// upper-case form.
template <typename Text>
bool EqualsNoCase(const Text& a, std::basic_string_view<typename Text::value_type> b) {
    return a.size() == b.size() && StartsWithNoCase(a, b);
}

}  // namespace ZEL
