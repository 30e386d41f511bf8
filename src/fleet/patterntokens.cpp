#include "fleet/patterntokens.h"

#include <algorithm>
#include <charconv>
#include <optional>

// This reads as much of the syntax as has one meaning everywhere. All else has none here and is
// named: it is better not to test a piece than to test it in another way.
//
// Letter case: the store's matcher folds ASCII letters to lower case, those of a set too, a range
// by its ends. So [!-Z] without case takes all from ! to z.

namespace zel::fleet {

namespace {

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}
bool IsLower(char c) noexcept {
    return c >= 'a' && c <= 'z';
}
bool IsUpper(char c) noexcept {
    return c >= 'A' && c <= 'Z';
}
bool IsWord(char c) noexcept {
    return IsDigit(c) || IsLower(c) || IsUpper(c) || c == '_';
}
bool IsSpace(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
bool IsPunctuation(char c) noexcept {
    return c > ' ' && c < 0x7F && (c == '_' || !IsWord(c));
}
bool IsAscii(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x80;
}
char Lower(char c) noexcept {
    return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

template <typename Test>
ByteSet BytesWhere(Test&& test) {
    ByteSet bytes;
    for (unsigned c = 0; c < 128; ++c)
        bytes.ascii[c] = test(static_cast<char>(c));
    return bytes;
}
ByteSet Opposite(ByteSet bytes) {
    bytes.ascii.flip();
    bytes.hasOthers = !bytes.hasOthers;
    return bytes;
}
void Add(ByteSet& to, const ByteSet& bytes) {
    to.ascii |= bytes.ascii;
    to.hasOthers = to.hasOthers || bytes.hasOthers;
}

// \d and its like.
std::optional<ByteSet> KindOf(char letter) {
    switch (letter) {
        case 'd':
            return BytesWhere(IsDigit);
        case 'w':
            return BytesWhere(IsWord);
        case 's':
            return BytesWhere(IsSpace);
        case 'D':
            return Opposite(BytesWhere(IsDigit));
        case 'W':
            return Opposite(BytesWhere(IsWord));
        case 'S':
            return Opposite(BytesWhere(IsSpace));
        default:
            return std::nullopt;
    }
}

// [:alpha:] and its like. Without case, letters of one case are letters of both.
std::optional<ByteSet> ClassOf(std::string_view name, bool caseSensitive) {
    const auto isLetter = [](char c) { return IsLower(c) || IsUpper(c); };
    if (name == "alpha" || (!caseSensitive && (name == "lower" || name == "upper")))
        return BytesWhere(isLetter);
    if (name == "lower")
        return BytesWhere(IsLower);
    if (name == "upper")
        return BytesWhere(IsUpper);
    if (name == "digit")
        return BytesWhere(IsDigit);
    if (name == "alnum")
        return BytesWhere([&](char c) { return isLetter(c) || IsDigit(c); });
    if (name == "word")
        return BytesWhere(IsWord);
    if (name == "space")
        return BytesWhere(IsSpace);
    if (name == "punct")
        return BytesWhere(IsPunctuation);
    if (name == "blank")
        return BytesWhere([](char c) { return c == ' ' || c == '\t'; });
    if (name == "cntrl")
        return BytesWhere([](char c) { return c < ' ' || c == 0x7F; });
    if (name == "graph")
        return BytesWhere([](char c) { return c > ' ' && c < 0x7F; });
    if (name == "print")
        return BytesWhere([](char c) { return c >= ' ' && c < 0x7F; });
    if (name == "xdigit")
        return BytesWhere(
            [](char c) { return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'f'); });
    return std::nullopt;
}

class Reader {
public:
    Reader(std::string_view expression, bool caseSensitive)
        : all_(expression), caseSensitive_(caseSensitive) {}

    PatternTokens Read() {
        while (at_ < all_.size()) {
            const std::size_t from = at_;
            if (ReadPiece())
                continue;
            const std::size_t length = std::clamp<std::size_t>(at_ - from, 1, 12);
            found_.unknown = Shown(from, length);
            found_.unknownAt = from;
            break;
        }
        return std::move(found_);
    }

private:
    // A piece that is no token is named up to where the reading of it ended, in whole characters.
    std::string Shown(std::size_t from, std::size_t length) const {
        while (from + length < all_.size() && (all_[from + length] & 0xC0) == 0x80)
            ++length;
        return std::string(all_.substr(from, length));
    }
    char Peek(std::size_t ahead = 0) const noexcept {
        return at_ + ahead < all_.size() ? all_[at_ + ahead] : '\0';
    }
    bool Take(char c) noexcept {
        const bool isThere = at_ < all_.size() && all_[at_] == c;
        at_ += isThere ? 1 : 0;
        return isThere;
    }
    PatternToken& Push(PatternToken::Kind kind) {
        found_.tokens.emplace_back().kind = kind;
        return found_.tokens.back();
    }

    bool ReadPiece() {
        const char c = all_[at_++];
        switch (c) {
            case '(':
                return ReadOpen();
            case ')':
                Push(PatternToken::close);
                return --depth_ >= 0 && ReadRepeat();
            case '|':
                Push(PatternToken::bar);
                return true;
            case '.':
                Push(PatternToken::anyByte);
                return ReadRepeat();
            case '[':
                return ReadSet() && ReadRepeat();
            case '\\':
                return ReadEscape();
            case '^':
                return StandsAtStart() && !IsRepeat();
            case '$':
                return depth_ == 0 && (at_ == all_.size() || Peek() == '|');
            case '*':
            case '+':
            case '?':
            case '{':
                return false;
            default:
                return ReadLiteral(c);
        }
    }
    bool StandsAtStart() const {
        return depth_ == 0 &&
               (found_.tokens.empty() || found_.tokens.back().kind == PatternToken::bar);
    }
    bool IsRepeat() const {
        return at_ < all_.size() && std::string_view("*+?{").find(Peek()) != std::string_view::npos;
    }

    bool ReadOpen() {
        constexpr int deepest = 100;
        if (Peek() == '?') {
            if (Peek(1) != ':') {
                at_ += 2;
                return false;
            }
            at_ += 2;
        } else if (Peek() == '*') {
            return false;
        }
        Push(PatternToken::open);
        return ++depth_ <= deepest;
    }

    bool ReadLiteral(char first) {
        PatternToken& token = Push(PatternToken::literal);
        token.text = first;
        if (IsAscii(first))
            return ReadRepeat();
        // A repeat would concern its last byte alone.
        while (at_ < all_.size() && (all_[at_] & 0xC0) == 0x80)
            token.text += all_[at_++];
        return !IsRepeat();
    }

    bool ReadEscape() {
        if (at_ == all_.size())
            return false;
        if (Take('b')) {
            Push(PatternToken::wordEdge);
            return !IsRepeat();
        }
        if (const auto kind = KindOf(Peek())) {
            ++at_;
            Push(PatternToken::set).bytes = *kind;
            return ReadRepeat();
        }
        const auto c = ReadEscaped();
        return c && ReadLiteral(*c);
    }
    // What stands behind a backslash and is one character.
    std::optional<char> ReadEscaped() {
        const char c = Peek();
        ++at_;
        constexpr std::string_view letters = "afnrt", controls = "\a\f\n\r\t";
        if (const std::size_t place = letters.find(c); place != letters.npos)
            return controls[place];
        if (c == 'x')
            return ReadHex();
        const bool isPlace = c == '<' || c == '>' || c == '`' || c == '\'';
        return IsPunctuation(c) && !isPlace ? std::optional(c) : std::nullopt;
    }
    std::optional<char> ReadHex() {
        unsigned number = 0;
        const std::string_view digits = all_.substr(at_, 2);
        const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
        const bool isWhole = digits.size() == 2 && read.ptr == digits.data() + digits.size();
        at_ += isWhole ? 2 : 0;
        return isWhole && number < 0x80 ? std::optional(static_cast<char>(number)) : std::nullopt;
    }

    bool ReadSet() {
        const bool isOpposite = Take('^');
        ByteSet bytes;
        for (bool isFirst = true; isFirst || Peek() != ']'; isFirst = false)
            if (at_ >= all_.size() || !ReadMember(&bytes))
                return false;
        ++at_;
        // A byte is folded ahead of the look into the set.
        ByteSet folded = bytes;
        for (unsigned c = 0; c < 128 && !caseSensitive_; ++c)
            folded.ascii[c] = bytes.ascii[static_cast<unsigned char>(Lower(static_cast<char>(c)))];
        Push(PatternToken::set).bytes = isOpposite ? Opposite(folded) : folded;
        return true;
    }
    bool ReadMember(ByteSet* bytes) {
        if (Peek() == '[')
            if (const char kind = Peek(1); kind == ':' || kind == '.' || kind == '=')
                return ReadClass(bytes);
        if (Peek() == '\\') {
            if (const auto kind = KindOf(Peek(1))) {
                at_ += 2;
                Add(*bytes, *kind);
                return Peek() != '-' || Peek(1) == ']';
            }
        }
        const auto first = ReadSetCharacter();
        if (!first)
            return false;
        std::optional<char> last = first;
        if (Peek() == '-' && Peek(1) != ']') {
            ++at_;
            if (Peek() == '[' || (Peek() == '\\' && KindOf(Peek(1))))
                return false;
            last = ReadSetCharacter();
            if (!last || (Peek() == '-' && Peek(1) != ']'))
                return false;
        }
        const char from = caseSensitive_ ? *first : Lower(*first);
        const char to = caseSensitive_ ? *last : Lower(*last);
        Add(*bytes, BytesWhere([&](char c) { return c >= from && c <= to; }));
        return true;
    }
    std::optional<char> ReadSetCharacter() {
        if (at_ >= all_.size())
            return std::nullopt;
        if (Take('\\'))
            return at_ < all_.size() ? ReadEscaped() : std::nullopt;
        const char c = all_[at_++];
        return IsAscii(c) ? std::optional(c) : std::nullopt;
    }
    bool ReadClass(ByteSet* bytes) {
        const std::size_t end = all_.find(":]", at_ + 2);
        const auto kind = Peek(1) == ':' && end != all_.npos
                              ? ClassOf(all_.substr(at_ + 2, end - at_ - 2), caseSensitive_)
                              : std::nullopt;
        at_ = kind ? end + 2 : at_ + 2;
        if (!kind || (Peek() == '-' && Peek(1) != ']'))
            return false;
        Add(*bytes, *kind);
        return true;
    }

    // A repeat of the latest token, if there is one. Whether it takes as few as it can makes no
    // difference to a whole text.
    bool ReadRepeat() {
        PatternToken& token = found_.tokens.back();
        if (Take('*')) {
            token.least = 0;
            token.most = PatternToken::endless;
        } else if (Take('+')) {
            token.most = PatternToken::endless;
        } else if (Take('?')) {
            token.least = 0;
        } else if (Peek() == '{' && at_ < all_.size()) {
            if (!ReadCounts(&token))
                return false;
        } else {
            return true;
        }
        Take('?');
        return !IsRepeat();
    }
    bool ReadCounts(PatternToken* token) {
        constexpr std::uint32_t mostTold = 1000;
        ++at_;
        const auto number = [this](std::uint32_t* to) {
            const char* const begin = all_.data() + at_;
            const auto read = std::from_chars(begin, all_.data() + all_.size(), *to);
            at_ += static_cast<std::size_t>(read.ptr - begin);
            return read.ec == std::errc() && *to <= mostTold;
        };
        if (!number(&token->least))
            return false;
        token->most = token->least;
        if (Take(',')) {
            token->most = PatternToken::endless;
            if (Peek() != '}' && !number(&token->most))
                return false;
        }
        return Take('}') && token->least <= token->most;
    }

    const std::string_view all_;
    const bool caseSensitive_;
    std::size_t at_ = 0;
    int depth_ = 0;
    PatternTokens found_;
};

}  // namespace

PatternTokens ReadPattern(std::string_view expression, bool caseSensitive) {
    return Reader(expression, caseSensitive).Read();
}

}  // namespace zel::fleet
