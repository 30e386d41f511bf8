#include "zelstore/keys/keyformat.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include "common/textbridge.h"

// A key is a letter and then fields, each written as <name>value with nothing behind it:
//
//   primary     p<begin_time>B<sequence>S<object_type>O<action>A  and optional fields
//   receive     r<receive_time>T<sequence>N
//   enrichment  a primary key, then <silent_sequence>N, then <silent_enrichment>F for flagged ones
//
// Times have a fixed form and numbers ten digits, so that byte order is time order and number
// order. Nothing is escaped: a value with '<' or '>' is read back cut short or not at all.

namespace ZEL {

namespace {

struct TypeNumber {
    std::string_view objectType;
    const char* number;
};

constexpr TypeNumber typeNumbers[] = {
    {"session", "8000"},       {"process", "8001"}, {"module", "8002"},    {"file", "8003"},
    {"directory", "8004"},     {"reg_key", "8005"}, {"reg_value", "8006"}, {"network", "8007"},
    {"kernel_object", "8009"}, {"etw", "8015"},     {"amsi", "8018"},      {"url", "42"},
};

// The value of a piece when it is a field of this name.
std::optional<std::string_view> ValueOf(std::string_view piece, std::string_view name) noexcept {
    if (piece.size() <= name.size() || piece[name.size()] != '>' || !piece.starts_with(name))
        return std::nullopt;
    const std::string_view value = piece.substr(name.size() + 1);
    if (value.find('>') != std::string_view::npos)
        return std::nullopt;
    return value;
}

// Where the last '<' of the first `end` characters stands, or npos. Eight at a time: this is most
// of what a row costs.
std::size_t LastMark(const char* text, std::size_t end) noexcept {
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
std::string_view TakePiece(std::optional<std::string_view>* text) noexcept {
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
    const auto objectType = fields.Find("object_type");
    if (!objectType)
        return hr::fail;
    if (*objectType == "file" && fields.Find("action") == "reputation_query") {
        *value = "5";
        return hr::ok;
    }
    const auto row = std::find_if(std::begin(typeNumbers), std::end(typeNumbers),
                                  [&](const TypeNumber& r) { return r.objectType == *objectType; });
    *value = row != std::end(typeNumbers) ? row->number : "";
    return hr::ok;
}

HRESULT GetMissingTargetTypeId(const KeyFields& fields, std::string_view* value) noexcept {
    const auto objectType = fields.Find("object_type");
    if (!objectType)
        return hr::fail;
    *value = *objectType == "kernel_object" ? "1" : "";
    return hr::ok;
}

}  // namespace

HRESULT FamilyPrefix(std::int32_t family, std::string* prefix) {
    if (family != familyPrimary && family != familyReceive)
        return hr::invalidArgument;
    prefix->assign(1, family == familyPrimary ? 'p' : 'r');
    return hr::ok;
}

HRESULT MakeScanStartKey(std::int32_t family, std::string_view time, std::uint32_t sequence,
                         std::string* key) {
    const HRESULT result = FamilyPrefix(family, key);
    if (Failed(result))
        return result;
    KeyTemplate start(*key + (family == familyPrimary ? "<begin_time>|A<sequence>|B"
                                                      : "<receive_time>|C<sequence>|B"));
    start.Set(family == familyPrimary ? 'A' : 'C', time);
    start.Set('B', TenDigits(sequence));
    *key = start.Take();
    return hr::ok;
}

HRESULT ExtractKeyDate(std::string_view key, std::string* date) {
    constexpr std::string_view start = "p<begin_time>";
    constexpr std::size_t dateLength = 10;
    constexpr std::size_t digitCount = 8;
    if (!key.starts_with(start))
        return hr::fail;
    date->assign(key.substr(start.size(), dateLength));
    std::erase(*date, '-');
    return date->size() == digitCount ? hr::ok : hr::fail;
}

void SplitKeyFields(std::string_view key, KeyFields* fields) noexcept {
    fields->count_ = 0;
    fields->rest_ = key;
}

std::optional<std::string_view> KeyFields::Find(std::string_view name) const noexcept {
    for (std::size_t i = 0; i < count_; ++i) {
        if (const auto value = ValueOf(pieces_[i], name))
            return value;
    }
    while (rest_ && count_ < mostPieces) {
        pieces_[count_++] = TakePiece(&rest_);
        if (const auto value = ValueOf(pieces_[count_ - 1], name))
            return value;
    }
    for (auto rest = rest_; rest;) {
        if (const auto value = ValueOf(TakePiece(&rest), name))
            return value;
    }
    return std::nullopt;
}

HRESULT GetKeyField(const KeyFields& fields, std::string_view name,
                    std::string_view* value) noexcept {
    if (name == "type_id")
        return GetTypeId(fields, value);
    if (const auto found = fields.Find(name)) {
        *value = *found;
        return IsText(*found) ? hr::ok : hr::fail;
    }
    return name == "target_type_id" ? GetMissingTargetTypeId(fields, value) : hr::fail;
}

void KeyTemplate::Set(char tag, std::string_view value) {
    const char placeholder[] = {'|', tag};
    const std::size_t at = key_.find(std::string_view(placeholder, sizeof(placeholder)));
    if (at != std::string::npos)
        key_.replace(at, sizeof(placeholder), value);
}

std::string TenDigits(std::uint32_t number) {
    std::string digits(10, '0');
    for (auto digit = digits.rbegin(); number != 0; number /= 10)
        *digit++ = static_cast<char>('0' + number % 10);
    return digits;
}

}  // namespace ZEL
