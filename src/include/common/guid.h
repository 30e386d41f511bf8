#pragma once

#include <compare>
#include <cstdint>
#include <cstring>

namespace ZEL {

// A 128-bit identifier with the memory layout that the object model fixes: three integers in the
// machine's byte order and eight bytes. Equality and order compare the 16 bytes as raw memory.
//
// The order is that of the bytes, not of the printed form: on a machine with little-endian integers
// Data1's lowest byte counts first. It serves maps and is the same within a process; nothing may
// store it.
struct GUID {
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::uint8_t Data4[8] = {};

    friend bool operator==(const GUID& a, const GUID& b) noexcept {
        return std::memcmp(&a, &b, sizeof(GUID)) == 0;
    }
    // For maps alone.
    friend std::strong_ordering operator<=>(const GUID& a, const GUID& b) noexcept {
        return std::memcmp(&a, &b, sizeof(GUID)) <=> 0;
    }
};
// Identifiers are compared as raw memory, so there may be no padding in them.
static_assert(sizeof(GUID) == 16);

namespace detail {
// The throw is never run: it stops the compiler when a constant is misspelt. Lower case is refused,
// so that an identifier has one spelling in the source and can be found by it.
constexpr std::uint32_t HexDigit(char c) {
    return c >= '0' && c <= '9'   ? static_cast<std::uint32_t>(c - '0')
           : c >= 'A' && c <= 'F' ? static_cast<std::uint32_t>(c - 'A' + 10)
                                  : throw "identifiers are written with 0-9 and A-F";
}
// The first `digits` characters, the highest digit first.
constexpr std::uint32_t HexNumber(const char* text, int digits) {
    std::uint32_t number = 0;
    for (int i = 0; i < digits; ++i)
        number = number * 16 + HexDigit(text[i]);
    return number;
}
}  // namespace detail

// The identifier written as "1A8B6619-443B-4B5D-9755-C50696B237C6"; checked by the compiler. The
// hyphens are skipped by position. The printed form has the last eight bytes in their order in
// memory, and the three integers with their highest digit first.
consteval GUID MakeGuid(const char (&text)[37]) {
    GUID guid;
    guid.Data1 = detail::HexNumber(text, 8);
    guid.Data2 = static_cast<std::uint16_t>(detail::HexNumber(text + 9, 4));
    guid.Data3 = static_cast<std::uint16_t>(detail::HexNumber(text + 14, 4));
    constexpr int places[8] = {19, 21, 24, 26, 28, 30, 32, 34};
    for (int i = 0; i < 8; ++i)
        guid.Data4[i] = static_cast<std::uint8_t>(detail::HexNumber(text + places[i], 2));
    return guid;
}

}  // namespace ZEL
