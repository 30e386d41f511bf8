#include "questions/textsearch.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <optional>

#include "common/asciicase.h"
#include "common/jsontext.h"

// A place where the first and the last character of the wanted text stand in their distance is
// nearly always the text itself, so these two are compared for sixteen places at once, in both
// cases, and what lies between is looked at only there.

namespace zel {

namespace {

using ZEL::ToUpperAscii;

constexpr char ToLowerAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Appends a character that an escape of JSON stands for; a lone surrogate as it is written.
void AppendUtf8(std::uint32_t c, std::string* out) {
    const auto put = [out](std::uint32_t byte) { out->push_back(static_cast<char>(byte)); };
    if (c < 0x80)
        return put(c);
    if (c < 0x800) {
        put(0xC0 | c >> 6);
    } else {
        if (c < 0x10000) {
            put(0xE0 | c >> 12);
        } else {
            put(0xF0 | c >> 18);
            put(0x80 | (c >> 12 & 0x3F));
        }
        put(0x80 | (c >> 6 & 0x3F));
    }
    put(0x80 | (c & 0x3F));
}

// The four digits at `at`; none where they are not all there.
std::optional<std::uint32_t> HexQuad(std::string_view text, std::size_t at) {
    std::uint32_t number = 0;
    if (at + 4 > text.size())
        return std::nullopt;
    const char* const end = text.data() + at + 4;
    return std::from_chars(text.data() + at, end, number, 16).ptr == end ? std::optional(number)
                                                                         : std::nullopt;
}

// Of \uXXXX at `*at`, which moves behind it; two surrogates are one character.
void AppendQuad(std::string_view text, std::size_t* at, std::string* out) {
    const auto high = HexQuad(text, *at + 2);
    if (!high) {
        out->push_back(text[(*at)++]);
        return;
    }
    *at += 6;
    const auto low = text.substr(*at, 2) == "\\u" ? HexQuad(text, *at + 2) : std::nullopt;
    const bool isPair = *high >> 10 == 0xD800 >> 10 && low && *low >> 10 == 0xDC00 >> 10;
    AppendUtf8(isPair ? 0x10000 + ((*high & 0x3FF) << 10) + (*low & 0x3FF) : *high, out);
    *at += isPair ? 6 : 0;
}

// The event with the characters that its escapes stand for.
std::string WithoutEscapes(std::string_view event) {
    constexpr std::string_view names = "nrtbf", characters = "\n\r\t\b\f";
    std::string text;
    text.reserve(event.size());
    for (std::size_t at = 0; at < event.size();) {
        const char next = event[at] == '\\' && at + 1 < event.size() ? event[at + 1] : '\0';
        if (next == 'u') {
            AppendQuad(event, &at, &text);
            continue;
        }
        const std::size_t name = next != '\0' ? names.find(next) : names.npos;
        if (name != names.npos)
            text.push_back(characters[name]);
        else
            text.push_back(next != '\0' ? next : event[at]);
        at += next != '\0' ? 2 : 1;
    }
    return text;
}

// Whether a writer of JSON has used escapes that others don't.
bool HasUnusualEscapes(std::string_view event) {
    for (std::size_t at = event.find('\\'); at != event.npos && at + 1 < event.size();
         at = event.find('\\', at + 2))
        if (event[at + 1] != '\\' && event[at + 1] != '"')
            return true;
    return false;
}

std::string InJson(std::string_view text) {
    const std::string quoted = wm::JsonString(text);
    return quoted.substr(1, quoted.size() - 2);
}

}  // namespace

TextSearch::TextSearch(std::string_view wanted) : wanted_(wanted) {
    ZEL::MakeUpperAscii(wanted_);
    if (wanted_.empty())
        return;
    first_[0] = wanted_.front();
    first_[1] = ToLowerAscii(wanted_.front());
    last_[0] = wanted_.back();
    last_[1] = ToLowerAscii(wanted_.back());
}

bool TextSearch::IsAt(const char* text) const noexcept {
    return std::equal(wanted_.begin(), wanted_.end(), text,
                      [](char wanted, char c) { return wanted == ToUpperAscii(c); });
}

bool TextSearch::IsIn(std::string_view text) const noexcept {
    if (wanted_.empty())
        return true;
    if (text.size() < wanted_.size())
        return false;
    const char* at = text.data();
    std::size_t places = text.size() - wanted_.size() + 1;
#ifdef __SSE2__
    const std::size_t distance = wanted_.size() - 1;
    const auto either = [](const char* from, __m128i upper, __m128i lower) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        return _mm_or_si128(_mm_cmpeq_epi8(bytes, upper), _mm_cmpeq_epi8(bytes, lower));
    };
    const __m128i first[] = {_mm_set1_epi8(first_[0]), _mm_set1_epi8(first_[1])};
    const __m128i last[] = {_mm_set1_epi8(last_[0]), _mm_set1_epi8(last_[1])};
    for (; places >= sizeof(__m128i); places -= sizeof(__m128i), at += sizeof(__m128i)) {
        const __m128i both =
            _mm_and_si128(either(at, first[0], first[1]), either(at + distance, last[0], last[1]));
        for (auto found = static_cast<std::uint32_t>(_mm_movemask_epi8(both)); found != 0;
             found &= found - 1)
            if (IsAt(at + std::countr_zero(found)))
                return true;
    }
#endif
    for (; places > 0; --places, ++at)
        if (ToUpperAscii(*at) == wanted_.front() && IsAt(at))
            return true;
    return false;
}

EventSearch::EventSearch(std::string_view wanted)
    : plain_(wanted), inJson_(InJson(wanted)), sameInJson_(InJson(wanted) == wanted) {}

bool EventSearch::IsWritten(std::string_view event) const noexcept {
    return plain_.IsIn(event) || (!sameInJson_ && inJson_.IsIn(event));
}

bool EventSearch::MayBeIn(std::string_view event) const noexcept {
    return IsWritten(event) || HasUnusualEscapes(event);
}

// Nearly no event needs the third look.
bool EventSearch::IsIn(std::string_view event) const {
    return IsWritten(event) || (HasUnusualEscapes(event) && plain_.IsIn(WithoutEscapes(event)));
}

}  // namespace zel
