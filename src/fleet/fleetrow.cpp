#include "fleet/fleetrow.h"

#include <array>
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
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const char letter = escapes[byte];
        if (letter == 0)
            continue;
        out->append(text.data() + begin, i - begin).append(1, '\\').append(1, letter);
        if (letter == 'u')
            out->append("00").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
        begin = i + 1;
    }
    out->append(text.data() + begin, text.size() - begin).append(1, '"');
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
