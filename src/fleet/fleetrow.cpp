#include "fleet/fleetrow.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <charconv>

#include "common/textbridge.h"
#include "fleet/fleettable.h"
#include "zelstore/keys/keyfield.h"
#include "zelstore/keys/keysplit.h"

namespace zel::fleet {

namespace {

using ZEL::KeyField;

// What has to be escaped: 0 for nothing, else the letter behind the backslash, u for six digits.
constexpr std::array<char, 256> escapes = [] {
    std::array<char, 256> table{};
    for (std::size_t i = 0; i < 0x20; ++i)
        table[i] = 'u';
    table['"'] = '"';
    table['\\'] = '\\';
    table['\n'] = 'n';
    table['\r'] = 'r';
    table['\t'] = 't';
    return table;
}();

// How many bytes ahead of the first that has to be escaped. As many at a time as the processor
// takes: events have many and long stretches of them.
std::size_t PlainBytes(std::string_view text) noexcept {
    std::size_t at = 0;
#ifdef __SSE2__
    const __m128i quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\');
    const __m128i lastControl = _mm_set1_epi8(0x1F);
    for (; at + sizeof(__m128i) <= text.size(); at += sizeof(__m128i)) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
        const __m128i found = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)),
            _mm_cmpeq_epi8(_mm_max_epu8(bytes, lastControl), lastControl));
        const auto mask = static_cast<std::uint32_t>(_mm_movemask_epi8(found));
        if (mask != 0)
            return at + static_cast<std::size_t>(std::countr_zero(mask));
    }
#endif
    while (at < text.size() && escapes[static_cast<unsigned char>(text[at])] == 0)
        ++at;
    return at;
}

void AppendNumber(std::uint64_t number, std::string* out) {
    char digits[20];
    const auto [end, error] = std::to_chars(digits, digits + sizeof(digits), number);
    out->append(digits, end);
}

void AppendMember(std::string_view name, std::string_view value, std::string* out) {
    out->append(",\"").append(name).append("\":");
    AppendJsonText(value, out);
}

}  // namespace

void AppendJsonText(std::string_view text, std::string* out) {
    constexpr const char* digits = "0123456789abcdef";
    *out += '"';
    while (!text.empty()) {
        const std::size_t plain = PlainBytes(text);
        out->append(text.data(), plain);
        text.remove_prefix(plain);
        if (text.empty())
            break;
        const auto byte = static_cast<unsigned char>(text.front());
        const char letter = escapes[byte];
        const char escape[] = {'\\', letter, '0', '0', digits[byte >> 4], digits[byte & 15]};
        out->append(escape, letter == 'u' ? sizeof(escape) : 2);
        text.remove_prefix(1);
    }
    *out += '"';
}

bool AppendEventRow(std::string_view host, const FleetReceipt& receipt, std::string_view key,
                    std::string_view event, std::string* out) {
    if (!wm::IsUtf8(key) || !wm::IsUtf8(event))
        return false;
    ZEL::KeyFields fields;
    ZEL::SplitKeyFields(key, &fields);
    const auto valueOf = [&fields](KeyField field) {
        return fields.Find(ZEL::KeyFieldName(field));
    };
    std::uint32_t sequence = 0;
    const std::string_view digits = valueOf(KeyField::sequence).value_or("");
    std::from_chars(digits.data(), digits.data() + digits.size(), sequence);
    out->append("{\"host\":");
    AppendJsonText(host, out);
    out->append(",\"receive_ms\":");
    AppendNumber(receipt.milliseconds, out);
    out->append(",\"receive_no\":");
    AppendNumber(receipt.number, out);
    AppendMember("begin_time", valueOf(KeyField::beginTime).value_or(""), out);
    out->append(",\"sequence\":");
    AppendNumber(sequence, out);
    AppendMember("object_type", valueOf(KeyField::objectType).value_or(""), out);
    AppendMember("action", valueOf(KeyField::action).value_or(""), out);
    unsigned present = 0;
    for (const FleetColumn& column : EventColumns()) {
        if (column.presentBit == 0)
            continue;
        if (const auto value = valueOf(*column.field)) {
            present |= column.presentBit;
            AppendMember(column.name, *value, out);
        }
    }
    out->append(",\"present\":");
    AppendNumber(present, out);
    AppendMember("key", key, out);
    AppendMember("event", event, out);
    out->append("}\n");
    return true;
}

}  // namespace zel::fleet
