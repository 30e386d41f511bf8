#include "zel/query/jsonscan.h"

#include <algorithm>

// A descent over the grammar of RFC 8259, without look-ahead beyond one byte. Each routine stands
// on the first byte of what it reads and leaves the place behind the last one; on failure it leaves
// the place of the first byte that can't be there. The first failure stays, all callers only pass
// it on. Of the members of the outermost object the places are kept, and of nothing else.

namespace zel {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

JsonScan::JsonScan(std::string_view text) : text_(text) {
    SkipBlanks();
    isObject_ = Peek() == '{';
    if (!Value(0))
        return;
    SkipBlanks();
    if (at_ < text_.size())
        Fail("nothing is expected behind the end");
}

// Names are compared as they are written, so a name with escapes is not found: what the program
// looks for nobody writes that way.
std::string_view JsonScan::Member(std::string_view name) const {
    const auto found = std::find_if(members_.begin(), members_.end(),
                                    [&](const Entry& entry) { return entry.name == name; });
    return found != members_.end() ? found->value : std::string_view();
}

std::string_view JsonScan::LastMember(std::string_view name) const {
    return !members_.empty() && members_.back().name == name ? members_.back().value
                                                             : std::string_view();
}

// The place is where reading stands, so who fails sets it first if it is another.
bool JsonScan::Fail(const char* error) {
    if (error_ == nullptr)
        error_ = error;
    return false;
}

void JsonScan::SkipBlanks() {
    while (at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != text_.npos)
        ++at_;
}

bool JsonScan::Take(char c) {
    if (at_ >= text_.size() || text_[at_] != c)
        return false;
    ++at_;
    return true;
}

bool JsonScan::Word(std::string_view word) {
    if (!text_.substr(at_).starts_with(word))
        return Fail("a value is expected");
    at_ += word.size();
    return true;
}

// What begins nothing is read as a number, which has the words for a value that is missing.
bool JsonScan::Value(int depth) {
    if (depth > deepest)
        return Fail("the nesting is too deep");
    switch (Peek()) {
        case '{':
            return Object(depth);
        case '[':
            return Array(depth);
        case '"':
            return String();
        case 't':
            return Word("true");
        case 'f':
            return Word("false");
        case 'n':
            return Word("null");
        default:
            return Number();
    }
}

bool JsonScan::Object(int depth) {
    ++at_;
    SkipBlanks();
    if (Take('}'))
        return true;
    for (;;) {
        const std::size_t nameAt = at_ + 1;
        if (Peek() != '"')
            return Fail("a name in quotes is expected");
        if (!String())
            return false;
        const std::string_view name = text_.substr(nameAt, at_ - 1 - nameAt);
        SkipBlanks();
        if (!Take(':'))
            return Fail("a colon is expected");
        SkipBlanks();
        const std::size_t valueAt = at_;
        if (!Value(depth + 1))
            return false;
        if (depth == 0)
            members_.push_back({name, text_.substr(valueAt, at_ - valueAt)});
        SkipBlanks();
        if (Take('}'))
            return true;
        if (!Take(','))
            return Fail("a comma or } is expected");
        SkipBlanks();
    }
}

bool JsonScan::Array(int depth) {
    ++at_;
    SkipBlanks();
    if (Take(']'))
        return true;
    for (;;) {
        if (!Value(depth + 1))
            return false;
        SkipBlanks();
        if (Take(']'))
            return true;
        if (!Take(','))
            return Fail("a comma or ] is expected");
        SkipBlanks();
    }
}

// Bytes from 0x80 on pass: that they are UTF-8 is known before.
bool JsonScan::String() {
    ++at_;
    while (at_ < text_.size()) {
        if (Take('"'))
            return true;
        if (static_cast<unsigned char>(text_[at_]) < 0x20)
            return Fail("a control character inside a string has to be escaped");
        if (text_[at_] != '\\')
            ++at_;
        else if (!Escape())
            return false;
    }
    return Fail("the string has no end");
}

// What is wrong with an escape as a whole is placed at its backslash, a wrong digit at the digit.
bool JsonScan::Escape() {
    const std::size_t start = at_++;
    const char kind = Peek();
    ++at_;
    if (kind != 'u') {
        if (kind != '\0' && std::string_view("\"\\/bfnrt").find(kind) != text_.npos)
            return true;
        at_ = start;
        return Fail("no such escape; a backslash is written as \\\\");
    }
    unsigned unit = 0, low = 0;
    if (!HexQuad(&unit))
        return false;
    const bool isHigh = unit >= 0xD800 && unit <= 0xDBFF;
    const bool isLow = unit >= 0xDC00 && unit <= 0xDFFF;
    if (isHigh && text_.substr(at_).starts_with("\\u")) {
        at_ += 2;
        if (!HexQuad(&low))
            return false;
    }
    if (isLow || (isHigh && (low < 0xDC00 || low > 0xDFFF))) {
        at_ = start;
        return Fail("half of a surrogate pair");
    }
    return true;
}

bool JsonScan::HexQuad(unsigned* value) {
    for (int i = 0; i < 4; ++i, ++at_) {
        const std::size_t digit =
            std::string_view("0123456789abcdefABCDEF").find(at_ < text_.size() ? text_[at_] : ' ');
        if (digit == text_.npos)
            return Fail("four hexadecimal digits are expected");
        *value = *value * 16 + static_cast<unsigned>(digit < 16 ? digit : digit - 6);
    }
    return true;
}

bool JsonScan::Digits() {
    if (!IsDigit(Peek()))
        return Fail("a digit is expected");
    while (IsDigit(Peek()))
        ++at_;
    return true;
}

bool JsonScan::Number() {
    if (Peek() != '-' && !IsDigit(Peek()))
        return Fail(at_ == text_.size() ? "the text ends too early" : "a value is expected");
    Take('-');
    if (Take('0')) {
        if (IsDigit(Peek()))
            return Fail("a number has no leading zeros");
    } else if (!Digits()) {
        return false;
    }
    if (Take('.') && !Digits())
        return false;
    if (Take('e') || Take('E')) {
        if (!Take('+'))
            Take('-');
        return Digits();
    }
    return true;
}

// Characters are counted by their first bytes.
TextPlace PlaceOf(std::string_view text, std::size_t at) {
    at = std::min(at, text.size());
    TextPlace place;
    const std::string_view ahead = text.substr(0, at);
    const std::size_t lineAt = ahead.rfind('\n') + 1;  // npos + 1 is 0
    place.line += static_cast<std::size_t>(std::count(ahead.begin(), ahead.end(), '\n'));
    place.byteInLine = at - lineAt;
    place.lineText = text.substr(lineAt, text.find_first_of("\r\n", lineAt) - lineAt);
    for (const char c : ahead.substr(lineAt))
        place.column += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return place;
}

}  // namespace zel
