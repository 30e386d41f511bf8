#include "zelstore/keys/keysplit.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
#include <cstdint>
#include <cstring>

#include "common/textbridge.h"
#include "zelstore/keys/keyfield.h"
#include "zelstore/keys/typenumbers.h"

// How a row's key is read. A question asks for few fields and most rows fail the first test, so a
// key is split piece by piece, from its end, where the fields stand that tell rows apart best; the
// time and the kind at its start are the same in many rows. What was split off is remembered for
// the next field of the same key.

namespace ZEL {

namespace {

// The value of a piece when it is a field of this name.
std::optional<std::string_view> ValueOf(std::string_view piece, std::string_view name) noexcept {
    if (piece.size() <= name.size() || piece[name.size()] != '>' || !piece.starts_with(name))
        return std::nullopt;
    const std::string_view value = piece.substr(name.size() + 1);
    if (value.find('>') != std::string_view::npos)
        return std::nullopt;
    return value;
}

// Where the last '<' of the first `end` characters stands, or npos. As many at a time as the
// processor takes: this is most of what a row costs.
std::size_t LastMark(const char* text, std::size_t end) noexcept {
#ifdef __SSE2__
    const __m128i sixteenMarks = _mm_set1_epi8('<');
    for (; end >= sizeof(__m128i); end -= sizeof(__m128i)) {
        const char* const at = text + end - sizeof(__m128i);
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        const auto found =
            static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, sixteenMarks)));
        if (found != 0)
            return end - sizeof(__m128i) + static_cast<std::size_t>(std::bit_width(found)) - 1;
    }
#endif
    constexpr std::uint64_t marks = 0x3C3C3C3C3C3C3C3C;  // '<'
    constexpr std::uint64_t low7 = 0x7F7F7F7F7F7F7F7F;
    constexpr std::size_t width = sizeof(std::uint64_t);
    for (; end >= width; end -= width) {
        std::uint64_t word;
        std::memcpy(&word, text + end - width, width);
        word ^= marks;
        // The top bit of each byte that was a mark, and of no other.
        const std::uint64_t found = ~(((word & low7) + low7) | word | low7);
        if (found == 0)
            continue;
        const int behind = std::endian::native == std::endian::little ? std::countl_zero(found)
                                                                      : std::countr_zero(found);
        return end - 1 - static_cast<std::size_t>(behind) / 8;
    }
    while (end > 0 && text[end - 1] != '<')
        --end;
    return end > 0 ? end - 1 : std::string_view::npos;
}

// Foreign databases may hold anything. Nearly all values are ASCII, which is told at once.
bool IsText(std::string_view value) noexcept {
    unsigned char all = 0;
    for (const char c : value)
        all = static_cast<unsigned char>(all | static_cast<unsigned char>(c));
    return all < 0x80 || wm::IsUtf8(value);
}

// Takes the last piece off a text.
inline std::string_view TakePiece(std::optional<std::string_view>* text) noexcept {
    const std::string_view whole = **text;
    const std::size_t mark = LastMark(whole.data(), whole.size());
    if (mark == std::string_view::npos) {
        text->reset();
        return whole;
    }
    *text = std::string_view(whole.data(), mark);
    return {whole.data() + mark + 1, whole.size() - mark - 1};
}

// The type number that goes with the kind of target; files that were only asked about have their
// own.
HRESULT GetTypeId(const KeyFields& fields, std::string_view* value) noexcept {
    const auto objectType = fields.Find(KeyFieldName(KeyField::objectType));
    if (!objectType)
        return hr::fail;
    if (*objectType == "file" &&
        fields.Find(KeyFieldName(KeyField::action)) == "reputation_query") {
        *value = "5";
        return hr::ok;
    }
    const TypeNumber* const row = FindTypeNumber(*objectType);
    *value = row != nullptr ? row->number : "";
    return hr::ok;
}

HRESULT GetMissingTargetTypeId(const KeyFields& fields, std::string_view* value) noexcept {
    const auto objectType = fields.Find(KeyFieldName(KeyField::objectType));
    if (!objectType)
        return hr::fail;
    *value = *objectType == "kernel_object" ? "1" : "";
    return hr::ok;
}

}  // namespace

void SplitKeyFields(std::string_view key, KeyFields* fields) noexcept {
    fields->count_ = 0;
    fields->rest_ = key;
}

std::optional<std::string_view> KeyFields::Find(std::string_view name) const noexcept {
    for (std::size_t i = 0; i < count_; ++i) {
        if (const auto value = ValueOf(pieces_[i], name))
            return value;
    }
    auto rest = rest_;
    while (rest && count_ < mostPieces) {
        const std::string_view piece = TakePiece(&rest);
        pieces_[count_++] = piece;
        if (const auto value = ValueOf(piece, name)) {
            rest_ = rest;
            return value;
        }
    }
    rest_ = rest;
    while (rest) {
        if (const auto value = ValueOf(TakePiece(&rest), name))
            return value;
    }
    return std::nullopt;
}

HRESULT GetKeyField(const KeyFields& fields, std::string_view name,
                    std::string_view* value) noexcept {
    if (name == KeyFieldName(KeyField::typeId))
        return GetTypeId(fields, value);
    if (const auto found = fields.Find(name)) {
        *value = *found;
        return IsText(*found) ? hr::ok : hr::fail;
    }
    return name == KeyFieldName(KeyField::targetTypeId) ? GetMissingTargetTypeId(fields, value)
                                                        : hr::fail;
}

}  // namespace ZEL
