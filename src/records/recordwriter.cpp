#include "records/recordwriter.h"

#include <charconv>
#include <cstring>
#include <iterator>

// Records are written straight into the text that goes to the store: no tree is built, and nothing
// is allocated once that text has reached its size.

namespace zel {

namespace {

constexpr bool NeedsEscape(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
}

// Where the first character that needs an escape stands, at or behind `at`. Eight at a time, since
// most of a record is text without one.
std::size_t NextEscape(std::string_view text, std::size_t at) {
    constexpr std::uint64_t ones = 0x0101010101010101, tops = 0x8080808080808080;
    const auto hasZero = [](std::uint64_t word) { return (word - ones) & ~word & tops; };
    for (; text.size() - at >= sizeof(std::uint64_t); at += sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, text.data() + at, sizeof(word));
        const std::uint64_t isControl = (word - ones * 0x20) & ~word & tops;
        if ((isControl | hasZero(word ^ ones * '"') | hasZero(word ^ ones * '\\')) != 0)
            break;
    }
    while (at < text.size() && !NeedsEscape(text[at]))
        ++at;
    return at;
}

void AppendEscaped(char c, std::string* out) {
    constexpr char digits[] = "0123456789abcdef";
    if (c == '"' || c == '\\') {
        out->push_back('\\');
        out->push_back(c);
        return;
    }
    const auto byte = static_cast<unsigned char>(c);
    out->append("\\u00").push_back(digits[byte >> 4]);
    out->push_back(digits[byte & 15]);
}

}  // namespace

void AppendJsonString(std::string_view utf8, std::string* out) {
    out->push_back('"');
    for (std::size_t at = 0;;) {
        const std::size_t next = NextEscape(utf8, at);
        out->append(utf8, at, next - at);
        if (next == utf8.size())
            break;
        AppendEscaped(utf8[next], out);
        at = next + 1;
    }
    out->push_back('"');
}

void RecordWriter::Comma() {
    if (needsComma_)
        out_.push_back(',');
    needsComma_ = true;
}

RecordWriter& RecordWriter::Begin(char bracket) {
    Comma();
    out_.push_back(bracket);
    needsComma_ = false;
    return *this;
}

RecordWriter& RecordWriter::End(char bracket) {
    out_.push_back(bracket);
    needsComma_ = true;
    return *this;
}

RecordWriter& RecordWriter::Key(std::string_view key) {
    Comma();
    AppendJsonString(key, &out_);
    out_.push_back(':');
    needsComma_ = false;
    return *this;
}

RecordWriter& RecordWriter::Text(std::string_view utf8) {
    Comma();
    AppendJsonString(utf8, &out_);
    return *this;
}

RecordWriter& RecordWriter::Number(std::uint64_t number) {
    char digits[20];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    return Json({digits, static_cast<std::size_t>(end - digits)});
}

RecordWriter& RecordWriter::Json(std::string_view json) {
    Comma();
    out_.append(json);
    return *this;
}

RecordWriter& RecordWriter::TextPair(std::string_view utf8) {
    return BeginObject().Key("value").BeginArray().Text(utf8).EndArray().EndObject();
}

RecordWriter& RecordWriter::NumberPair(std::uint64_t number) {
    return BeginObject().Key("value").BeginArray().Number(number).EndArray().EndObject();
}

}  // namespace zel
