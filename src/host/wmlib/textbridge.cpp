#include "common/textbridge.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// The one place where text changes its encoding. It is strict in both directions, so that what was
// accepted converts back to the same bytes: two spellings of one name, of which only one is
// canonical, would make two keys, and a surrogate that was let through once could be neither shown
// nor converted later. Refused are bytes that start or continue nothing, forms longer than needed,
// surrogates, halves of pairs and values beyond the last code point.
//
// Text is converted on the path of every record and every result, and nearly all of it is ASCII. So
// each conversion goes from run to run: the end of the ASCII run is found by blocks, the run is
// copied with widening or narrowing alone, and only what stands between runs is taken apart by code
// points. The slow way is taken for one code point at a time; after it the next run is looked for
// anew.
//
// Wide text has 16 or 32 bits to a unit, by the system. UTF-8 never has fewer bytes than either has
// units, which is why room for as many units as bytes is always enough.

namespace wm {

namespace {

constexpr bool wideIs16Bit = sizeof(wchar_t) == 2;
constexpr std::size_t asciiBlock = 32;  // units
constexpr std::uint32_t lastCodePoint = 0x10FFFF;
// No code point has this value.
constexpr std::uint32_t malformed = 0xFFFFFFFF;
constexpr std::uint32_t replacement = 0xFFFD;

constexpr bool IsSurrogate(std::uint32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

// Nearly all text is ASCII: runs of it are found by blocks and copied as they are.
//
// A block's units are looked at in words, which is faster than whatever a compiler makes of a loop
// over units that has to end early.
template <typename Unit>
bool IsAsciiBlock(const Unit* units) noexcept {
    constexpr std::uint64_t notAscii = sizeof(Unit) == 1   ? 0x8080808080808080
                                       : sizeof(Unit) == 2 ? 0xFF80FF80FF80FF80
                                                           : 0xFFFFFF80FFFFFF80;
    std::uint64_t words[asciiBlock * sizeof(Unit) / sizeof(std::uint64_t)], all = 0;
    std::memcpy(words, units, sizeof(words));
    for (const std::uint64_t word : words)
        all |= word;
    return (all & notAscii) == 0;
}

template <typename Unit>
std::size_t AsciiEnd(std::basic_string_view<Unit> text, std::size_t at) noexcept {
    using Bits = std::make_unsigned_t<Unit>;
    while (text.size() - at >= asciiBlock && IsAsciiBlock(text.data() + at))
        at += asciiBlock;
    // What is left of a text is looked at together with what stands ahead of it.
    if (text.size() - at < asciiBlock && text.size() >= asciiBlock &&
        IsAsciiBlock(text.data() + text.size() - asciiBlock))
        return text.size();
    while (at < text.size() && static_cast<Bits>(text[at]) < 0x80)
        ++at;
    return at;
}

// Sized once and then written through pointers: appending by characters would check the room for
// each.
template <typename From, typename To>
void AppendAscii(std::basic_string_view<From> run, std::basic_string<To>& out) {
    const std::size_t length = out.size();
    out.resize(length + run.size());
    const From* const from = run.data();
    To* const to = out.data() + length;
    for (std::size_t i = 0; i < run.size(); ++i)
        to[i] = static_cast<To>(from[i]);
}

void AppendUtf8(std::uint32_t c, std::string& out) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

// Gives the place after what was written.
wchar_t* PutWide(std::uint32_t c, wchar_t* out) noexcept {
    if constexpr (wideIs16Bit) {
        if (c >= 0x10000) {
            *out++ = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
            c = 0xDC00 + ((c - 0x10000) & 0x3FF);
        }
    }
    *out++ = static_cast<wchar_t>(c);
    return out;
}

// wchar_t has a sign on some systems, and a unit with the top bit set must not become a negative
// number that passes as small.
constexpr std::uint32_t UnitOf(wchar_t c) {
    return static_cast<std::make_unsigned_t<wchar_t>>(c);
}

// One code point from `at` on, which moves behind it; `malformed` leaves `at` behind one unit.
std::uint32_t NextWide(std::wstring_view text, std::size_t& at) {
    const std::uint32_t unit = UnitOf(text[at++]);
    if (!IsSurrogate(unit))
        return unit <= lastCodePoint ? unit : malformed;
    if (!wideIs16Bit || unit >= 0xDC00 || at == text.size())
        return malformed;
    const std::uint32_t low = UnitOf(text[at]);
    if (low < 0xDC00 || low > 0xDFFF)
        return malformed;
    ++at;
    return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

// Of a form of several bytes `at` moves on only when all of them fit, so that a cut-off one takes
// its lead byte alone with it. The bounds of the lead byte exclude the two-byte forms that are too
// long and those beyond the last code point by far; the rest is checked by the value.
std::uint32_t NextUtf8(std::string_view bytes, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(bytes[at]);
    ++at;
    if (lead < 0x80)
        return lead;
    const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || bytes.size() - at < more)
        return malformed;
    std::uint32_t c = lead & (0x3FU >> more);
    for (std::size_t i = 0; i < more; ++i) {
        const auto next = static_cast<unsigned char>(bytes[at + i]);
        if ((next & 0xC0) != 0x80)
            return malformed;
        c = (c << 6) | (next & 0x3FU);
    }
    const bool overlong = (more == 2 && c < 0x800) || (more == 3 && c < 0x10000);
    if (overlong || c > lastCodePoint || IsSurrogate(c))
        return malformed;
    at += more;
    return c;
}

}  // namespace

// The memory that `out` has is used again; a caller that converts many texts passes the same one.
bool ToUtf8(std::wstring_view text, std::string& out) {
    out.clear();
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = AsciiEnd(text, at);
        AppendAscii(text.substr(at, end - at), out);
        at = end;
        if (at == text.size())
            break;
        const std::uint32_t c = NextWide(text, at);
        if (c == malformed)
            return false;
        AppendUtf8(c, out);
    }
    return true;
}

bool ToWide(std::string_view utf8, wchar_t* out, std::size_t* length) noexcept {
    wchar_t* to = out;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::size_t end = AsciiEnd(utf8, at);
        to = std::copy(utf8.begin() + static_cast<std::ptrdiff_t>(at),
                       utf8.begin() + static_cast<std::ptrdiff_t>(end), to);
        at = end;
        if (at == utf8.size())
            break;
        const std::uint32_t c = NextUtf8(utf8, at);
        if (c == malformed)
            return false;
        to = PutWide(c, to);
    }
    *length = static_cast<std::size_t>(to - out);
    return true;
}

bool ToWide(std::string_view utf8, std::wstring& out) {
    out.resize(utf8.size());
    std::size_t length = 0;
    const bool converted = ToWide(utf8, out.data(), &length);
    out.resize(length);
    return converted;
}

bool IsUtf8(std::string_view bytes) noexcept {
    std::size_t at = AsciiEnd(bytes, 0);
    while (at < bytes.size()) {
        if (NextUtf8(bytes, at) == malformed)
            return false;
        at = AsciiEnd(bytes, at);
    }
    return true;
}

// Well-formed text, the usual case, takes the fast way; only other text is gone through again.
std::string ToUtf8Lossy(std::wstring_view text) {
    std::string out;
    if (ToUtf8(text, out))
        return out;
    out.clear();
    for (std::size_t at = 0; at < text.size();) {
        const std::uint32_t c = NextWide(text, at);
        AppendUtf8(c == malformed ? replacement : c, out);
    }
    return out;
}

}  // namespace wm
