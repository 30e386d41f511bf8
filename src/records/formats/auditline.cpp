#include "records/formats/auditline.h"

#include <charconv>

// What a line looks like:
//
//   [anything] [node=NAME ]type=TYPE msg=audit(SECONDS.MILLISECONDS:SERIAL): name=value name="text"
//   msg='name=value ...' [GS NAME="what auditd looked up"]
//
// The kernel writes text that somebody else has chosen (paths, arguments, names of accounts) in
// quotes while it is harmless, and as hexadecimal digits without quotes when it holds a blank, a
// quote, a control character or a byte above 126. So a quoted value never holds a quote.

namespace zel {

namespace {

constexpr std::string_view typeMark = "type=";
constexpr std::string_view stampMark = " msg=audit(";
constexpr std::string_view nodeMark = "node=";
constexpr char enrichedMark = '\x1d';

template <class Number>
bool TakeNumber(std::string_view& text, Number& number, char behind) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end == text.data() + text.size() || *end != behind)
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return true;
}

std::string_view NodeAhead(std::string_view head) {
    while (head.ends_with(' '))
        head.remove_suffix(1);
    const auto blank = head.rfind(' ');
    const auto word = blank == head.npos ? head : head.substr(blank + 1);
    return word.starts_with(nodeMark) ? word.substr(nodeMark.size()) : std::string_view{};
}

int HexDigit(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

// Length of the UTF-8 sequence at the beginning, 0 if there is none.
std::size_t SequenceLength(std::string_view bytes) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80)
            return 0;
    }
    const bool tooLong = (lead == 0xE0 && at(1) < 0xA0) || (lead == 0xF0 && at(1) < 0x90);
    const bool noCharacter = (lead == 0xED && at(1) >= 0xA0) || (lead == 0xF4 && at(1) >= 0x90);
    return tooLong || noCharacter ? 0 : length;
}

// Takes a value off the text behind its `=`.
AuditField TakeValue(std::string_view name, std::string_view& text) {
    AuditField field{name, {}, false};
    std::size_t next = 0;
    if (text.starts_with('"')) {
        const auto end = text.find('"', 1);
        field.quoted = true;
        field.value = text.substr(1, end == text.npos ? end : end - 1);
        next = end == text.npos ? text.size() : end + 1;
    } else if (text.starts_with('\'')) {
        // What stands in single quotes are the words of another program, which may hold one.
        const auto end = text.rfind('\'');
        field.value = text.substr(1, end == 0 ? text.npos : end - 1);
        next = end == 0 ? text.size() : end + 1;
    } else if (text.starts_with("{ ") && text.find('}') != text.npos) {
        next = text.find('}') + 1;
        field.value = text.substr(0, next);
    } else {
        const auto end = text.find(' ');
        field.value = text.substr(0, end);
        next = end == text.npos ? text.size() : end;
    }
    text.remove_prefix(next);
    return field;
}

// Within msg='...' a second one is a value like others: that other program's words nest no deeper.
enum class Quotes { open, taken };

void ParseFields(std::string_view body, Quotes quotes, std::vector<AuditField>& fields,
                 std::string& words) {
    while (!body.empty()) {
        if (body.front() == ' ' || body.front() == ',') {
            body.remove_prefix(1);
            continue;
        }
        const auto end = body.find_first_of(" =");
        if (end == body.npos || body[end] == ' ' || end == 0) {
            const auto word = body.substr(0, end == 0 ? 1 : end);
            words.append(words.empty() ? "" : " ").append(word);
            body.remove_prefix(word.size());
            continue;
        }
        const auto name = body.substr(0, end);
        body.remove_prefix(end + 1);
        const bool nested = quotes == Quotes::open && body.starts_with('\'');
        const AuditField field = TakeValue(name, body);
        if (nested)
            ParseFields(field.value, Quotes::taken, fields, words);
        else
            fields.push_back(field);
    }
}

}  // namespace

std::optional<AuditLine> ParseAuditLine(std::string_view line, std::string_view& reason) {
    const auto stampAt = line.find(stampMark);
    const auto typeAt = line.substr(0, stampAt).rfind(typeMark);
    if (stampAt == line.npos || typeAt == line.npos) {
        reason = "no type=... msg=audit(TIME:NUMBER)";
        return std::nullopt;
    }
    AuditLine result;
    result.type = line.substr(typeAt + typeMark.size(), stampAt - typeAt - typeMark.size());
    result.stamp.node = NodeAhead(line.substr(0, typeAt));
    std::string_view rest = line.substr(stampAt + stampMark.size());
    if (!TakeNumber(rest, result.stamp.seconds, '.') ||
        !TakeNumber(rest, result.stamp.milliseconds, ':') ||
        !TakeNumber(rest, result.stamp.serial, ')') || result.stamp.milliseconds > 999) {
        reason = "the time and number in msg=audit(...) can't be read";
        return std::nullopt;
    }
    if (rest.starts_with(':'))
        rest.remove_prefix(1);
    const auto separator = rest.find(enrichedMark);
    result.body = rest.substr(0, separator);
    if (separator != rest.npos)
        result.enriched = rest.substr(separator + 1);
    return result;
}

void ParseAuditFields(std::string_view body, std::vector<AuditField>& fields, std::string& words) {
    ParseFields(body, Quotes::open, fields, words);
}

std::optional<std::string> AuditHexToBytes(std::string_view value) {
    if (value.empty() || value.size() % 2 != 0)
        return std::nullopt;
    std::string bytes;
    bytes.reserve(value.size() / 2);
    for (std::size_t i = 0; i < value.size(); i += 2) {
        const int high = HexDigit(value[i]);
        const int low = HexDigit(value[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<char>(high * 16 + low));
    }
    return bytes;
}

std::string AuditBytesToText(std::string_view bytes, char gap) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t length = SequenceLength(bytes);
        if (length == 0) {
            const auto byte = static_cast<unsigned char>(bytes.front());
            text.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
        } else if (bytes.front() == '\0') {
            text.push_back(gap);
        } else {
            text.append(bytes.substr(0, length));
        }
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
    return text;
}

std::string DecodeAuditText(std::string_view value, char gap) {
    const auto bytes = AuditHexToBytes(value);
    return bytes ? AuditBytesToText(*bytes, gap) : std::string(value);
}

}  // namespace zel
