#include "records/recordwriter.h"

#include <charconv>
#include <iterator>

namespace zel {

namespace {

constexpr bool NeedsEscape(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
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

// Runs without escapes are most of all text and go in one piece.
void AppendJsonString(std::string_view utf8, std::string* out) {
    out->push_back('"');
    std::size_t begin = 0;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        if (!NeedsEscape(utf8[i]))
            continue;
        out->append(utf8, begin, i - begin);
        AppendEscaped(utf8[i], out);
        begin = i + 1;
    }
    out->append(utf8, begin, utf8.size() - begin).push_back('"');
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
