#include "fleet/patternsql.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "common/textbridge.h"
#include "fleet/patterntokens.h"
#include "fleet/sqltext.h"
#include "zelstore/query/neededtext.h"

// The store matches bytes and folds ASCII letters alone. The server's matcher goes by characters,
// folds as Unicode does, and knows less of the syntax. Handed over as it is, a pattern would often
// give another answer without a word. So it goes over token by token:
//
//   any byte                      \C
//   a letter without case         [aA]
//   a set of ASCII bytes          its members
//   a set with all other bytes    as it is, where it can only take whole characters; else \C, which
//                                 lets more through
//
// A set with other bytes takes whole characters where it is repeated without end and stands between
// what ends and begins a character for sure. Elsewhere a byte of the text's character could be
// taken and the next one not, which the server can't say: it would find too little.
//
// Patterns of plain characters and .* become LIKE, for which there is an index. So does what any
// match has to hold, ahead of the match itself.

namespace zel::fleet {

namespace {

using Tokens = std::vector<PatternToken>;

bool IsLetter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsEndless(const PatternToken& token) noexcept {
    return token.most == PatternToken::endless;
}

std::string FoldedColumn(std::string_view column, bool caseSensitive) {
    return caseSensitive ? std::string(column) : "lower(" + std::string(column) + ")";
}
std::string FoldedValue(std::string_view value, bool caseSensitive) {
    return caseSensitive ? std::string(value) : LowerAscii(value);
}

// None when there is more in it than plain characters and .*.
std::optional<std::string> LikeOf(const Tokens& tokens) {
    std::string like;
    for (const PatternToken& token : tokens) {
        if (token.kind == PatternToken::literal && token.least == 1 && token.most == 1)
            like += LikeText(token.text);
        else if (token.kind == PatternToken::anyByte && token.least == 0 && IsEndless(token))
            like += '%';
        else
            return std::nullopt;
    }
    return like;
}

void AppendByte(std::string& text, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    text.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
}

void AppendLiteral(std::string& text, const std::string& literal, bool caseSensitive) {
    const char c = literal[0];
    const auto byte = static_cast<unsigned char>(c);
    if (IsLetter(c) && !caseSensitive)
        text.append("[").append(LowerAscii(literal)).append(UpperAscii(literal)).append("]");
    else if (byte < ' ' || byte == 0x7F)
        AppendByte(text, byte);
    else if (byte < 0x80 && c != ' ' && c != '_' && !IsLetter(c) && (c < '0' || c > '9'))
        text.append(1, '\\').append(literal);
    else
        text += literal;
}

// The members of a set, or all but them.
void AppendSet(std::string& text, std::bitset<128> bytes, bool isOpposite) {
    text += isOpposite ? "[^" : "[";
    for (unsigned first = 0; first < 128; ++first) {
        if (!bytes[first])
            continue;
        unsigned last = first;
        while (last < 127 && bytes[last + 1])
            ++last;
        AppendByte(text, static_cast<unsigned char>(first));
        if (last > first) {
            text += '-';
            AppendByte(text, static_cast<unsigned char>(last));
        }
        first = last;
    }
    text += ']';
}

void AppendRepeat(std::string& text, const PatternToken& token) {
    if (token.least == 1 && token.most == 1)
        return;
    if (token.least == 0 && token.most == 1)
        text += '?';
    else if (token.least <= 1 && IsEndless(token))
        text += token.least == 0 ? '*' : '+';
    else
        text += "{" + std::to_string(token.least) +
                (token.most == token.least ? ""
                 : IsEndless(token)        ? ","
                                           : "," + std::to_string(token.most)) +
                "}";
}

// Whether what is taken next to this token begins or ends between two characters.
bool ParsCharacters(const PatternToken& token) {
    const bool isWhole = token.kind == PatternToken::literal ||
                         (token.kind == PatternToken::set && !token.bytes.hasOthers);
    return isWhole && token.least > 0;
}

class Translator {
public:
    Translator(const Tokens& tokens, bool caseSensitive)
        : tokens_(tokens), caseSensitive_(caseSensitive) {
        for (std::size_t i = 0; i < tokens.size() && isPossible_; ++i)
            Append(i);
    }

    const std::string& Text() const noexcept { return text_; }
    bool IsExact() const noexcept { return isExact_; }
    // Not when it is more than the server's matcher takes.
    bool IsPossible() const noexcept { return isPossible_; }

private:
    struct Group {
        std::uint64_t size = 0;   // of what it comes to when its counts are written out
        std::uint64_t count = 1;  // the counts inside of each other
    };
    static constexpr std::uint64_t mostSize = 20'000, mostCount = 1000;

    void Append(std::size_t i) {
        const PatternToken& token = tokens_[i];
        switch (token.kind) {
            case PatternToken::literal:
                AppendLiteral(text_, token.text, caseSensitive_);
                break;
            case PatternToken::set:
                AppendSetToken(i);
                break;
            case PatternToken::anyByte:
                text_ += "\\C";
                break;
            case PatternToken::wordEdge:
                text_ += "\\b";
                break;
            case PatternToken::open:
                text_ += "(?:";
                groups_.emplace_back();
                return;
            case PatternToken::close:
                text_ += ')';
                break;
            case PatternToken::bar:
                text_ += '|';
                break;
        }
        AppendRepeat(text_, token);
        CountIn(token);
    }
    void AppendSetToken(std::size_t i) {
        const PatternToken& token = tokens_[i];
        isPossible_ = isPossible_ && (token.bytes.hasOthers || token.bytes.ascii.any());
        if (!token.bytes.hasOthers)
            return AppendSet(text_, token.bytes.ascii, false);
        const auto outside = ~token.bytes.ascii;
        if (outside.none()) {
            text_ += "\\C";
        } else if (token.least <= 1 && IsEndless(token) && PartsAt(i, -1) && PartsAt(i, 1)) {
            AppendSet(text_, outside, true);
        } else {
            text_ += "\\C";
            isExact_ = false;
        }
    }
    // The pattern's ends are those of a text. A bar outside of groups begins another whole pattern.
    bool PartsAt(std::size_t i, int step) const {
        if (step < 0 ? i == 0 : i + 1 == tokens_.size())
            return true;
        const PatternToken& next = step < 0 ? tokens_[i - 1] : tokens_[i + 1];
        return next.kind == PatternToken::bar ? groups_.size() == 1 : ParsCharacters(next);
    }
    void CountIn(const PatternToken& token) {
        Group inner{1, 1};
        if (token.kind == PatternToken::close) {
            inner = groups_.back();
            groups_.pop_back();
        }
        const std::uint64_t times = IsEndless(token) ? token.least : token.most;
        if (times > 1) {
            inner.size *= times;
            inner.count *= times;
        }
        Group& outer = groups_.back();
        outer.size += inner.size + 1;
        outer.count = std::max(outer.count, inner.count);
        isPossible_ = isPossible_ && outer.size <= mostSize && outer.count <= mostCount;
    }

    const Tokens& tokens_;
    const bool caseSensitive_;
    std::vector<Group> groups_{1};
    std::string text_;
    bool isExact_ = true, isPossible_ = true;
};

// What each match holds, as a condition that the index serves; empty when nothing is known.
std::string NeededCondition(std::string_view column, const std::string& expression,
                            bool caseSensitive) {
    constexpr std::size_t leastNeeded = 3;
    const std::string needed = ZEL::NeededText(expression);
    if (needed.size() < leastNeeded || !wm::IsUtf8(needed))
        return "";
    return FoldedColumn(column, caseSensitive) + " LIKE " +
           SqlText("%" + LikeText(FoldedValue(needed, caseSensitive)) + "%");
}

}  // namespace

PatternSql SqlOfPattern(std::string_view column, const std::string& expression,
                        bool caseSensitive) {
    PatternSql result;
    const PatternTokens read = ReadPattern(expression, caseSensitive);
    if (!read.unknown.empty()) {
        result.isExact = false;
        result.refused = read.unknown;
        result.refusedAt = read.unknownAt;
        result.sql = NeededCondition(column, expression, caseSensitive);
        return result;
    }
    if (const auto like = LikeOf(read.tokens)) {
        // Newer servers put alternatives together, and then answer wrongly for an empty text.
        if (like->find_first_not_of('%') == like->npos)
            result.sql = like->empty() ? std::string(column) + " = ''" : "1";
        else
            result.sql = FoldedColumn(column, caseSensitive) + " LIKE " +
                         SqlText(FoldedValue(*like, caseSensitive));
        return result;
    }
    const std::string needed = NeededCondition(column, expression, caseSensitive);
    const Translator translator(read.tokens, caseSensitive);
    if (!translator.IsPossible()) {
        result.isExact = false;
        result.refused = expression.substr(0, 40);
        result.sql = needed;
        return result;
    }
    result.isExact = translator.IsExact();
    result.sql = needed.empty() ? "" : needed + " AND ";
    result.sql += "match(" + std::string(column) + ", " +
                  SqlText("\\A(?:" + translator.Text() + ")\\z") + ")";
    return result;
}

}  // namespace zel::fleet
