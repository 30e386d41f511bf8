#include "hunt/ruletext.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/textbridge.h"

namespace zel {

namespace {

using Piece = TextPattern::Piece;

constexpr std::string_view dashTexts[] = {"-", "/", "\u2013", "\u2014", "\u2015"};
constexpr std::size_t mostForms = 10'000;  // of one value

bool IsWordChar(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsEscaped(std::string_view text, std::size_t at) noexcept {
    return text[at] == '\\' && at + 1 < text.size() &&
           (text[at + 1] == '*' || text[at + 1] == '?' || text[at + 1] == '\\');
}

std::size_t SizeOf(const TextPattern& pattern) noexcept {
    std::size_t bytes = sizeof(ValueTest);
    for (const Piece& piece : pattern.pieces)
        bytes += sizeof(Piece) + piece.text.size();
    return bytes;
}

bool AppendForm(TextPattern form, ReadingBudget* budget, std::vector<TextPattern>* patterns,
                std::string* problem) {
    if (patterns->size() == mostForms)
        *problem = "stands for more than 10000 values";
    else if (!budget->Take(SizeOf(form)))
        *problem = budgetSpent;
    if (!problem->empty())
        return false;
    patterns->push_back(std::move(form));
    return true;
}

// Each pattern with each of the endings.
bool AppendEach(const std::vector<TextPattern>& endings, ReadingBudget* budget,
                std::vector<TextPattern>* patterns, std::string* problem) {
    std::vector<TextPattern> longer;
    for (const TextPattern& begin : *patterns) {
        for (const TextPattern& ending : endings) {
            TextPattern whole = begin;
            for (const Piece& piece : ending.pieces)
                Append(&whole, piece);
            if (!AppendForm(std::move(whole), budget, &longer, problem))
                return false;
        }
    }
    *patterns = std::move(longer);
    return true;
}

// Of "%name%" at that place its end; npos where there is none.
std::size_t PlaceholderEnd(std::string_view text, std::size_t at) noexcept {
    std::size_t end = at + 1;
    while (end < text.size() && IsWordChar(text[end]))
        ++end;
    return end > at + 1 && end < text.size() && text[end] == '%' ? end + 1 : text.npos;
}

// The text up to the next placeholder with `\%` resolved; `*at` becomes where that begins.
std::string TextAhead(std::string_view text, std::size_t* at) {
    std::string ahead;
    for (; *at < text.size(); ++*at) {
        if (text[*at] == '%' && PlaceholderEnd(text, *at) != text.npos)
            break;
        const bool isPair = IsEscaped(text, *at);
        if (isPair)
            ahead += text[(*at)++];
        else if (text[*at] == '\\' && text.substr(*at + 1).starts_with('%'))
            ++*at;
        ahead += text[*at];
    }
    return ahead;
}

// Bytes of the dash that stands there ahead of a word; 0 for none.
std::size_t DashAt(std::string_view text, std::size_t at) noexcept {
    std::size_t bytes = 0;
    for (const std::string_view dash : dashTexts)
        bytes = text.substr(at).starts_with(dash) ? dash.size() : bytes;
    const bool isAhead = at + bytes < text.size() && IsWordChar(text[at + bytes]);
    const bool isWithin = at > 0 && IsWordChar(text[at - 1]);
    return isAhead && !isWithin ? bytes : 0;
}

}  // namespace

void Append(TextPattern* pattern, Piece piece) {
    if (piece.kind == Piece::Kind::text && piece.text.empty())
        return;
    const bool joins = !pattern->pieces.empty() && piece.kind != Piece::Kind::anyOne &&
                       pattern->pieces.back().kind == piece.kind;
    if (joins)
        pattern->pieces.back().text += piece.text;
    else
        pattern->pieces.push_back(std::move(piece));
}

TextPattern ReadPattern(std::string_view text) {
    TextPattern pattern;
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '*' || text[at] == '?') {
            Append(&pattern, {Piece::Kind::text, std::exchange(plain, {})});
            Append(&pattern, {text[at] == '*' ? Piece::Kind::anyRun : Piece::Kind::anyOne, {}});
            continue;
        }
        at += IsEscaped(text, at) ? 1 : 0;
        plain += text[at];
    }
    Append(&pattern, {Piece::Kind::text, std::move(plain)});
    return pattern;
}

TextPattern Unbound(const TextPattern& pattern, bool ahead, bool behind) {
    TextPattern unbound;
    if (ahead)
        Append(&unbound, {Piece::Kind::anyRun, {}});
    for (const Piece& piece : pattern.pieces)
        Append(&unbound, piece);
    if (behind)
        Append(&unbound, {Piece::Kind::anyRun, {}});
    return unbound;
}

std::optional<std::string> PlainText(const TextPattern& pattern) {
    if (pattern.pieces.empty())
        return std::string();
    if (pattern.pieces.size() > 1 || pattern.pieces.front().kind != Piece::Kind::text)
        return std::nullopt;
    return pattern.pieces.front().text;
}

bool ExpandPlaceholders(std::string_view text, const Placeholders& placeholders,
                        ReadingBudget* budget, std::vector<TextPattern>* patterns,
                        std::string* problem) {
    std::vector<TextPattern> made(1);
    for (std::size_t at = 0; at < text.size();) {
        std::vector<TextPattern> endings{ReadPattern(TextAhead(text, &at))};
        if (!AppendEach(endings, budget, &made, problem))
            return false;
        if (at == text.size())
            break;
        const std::size_t end = PlaceholderEnd(text, at);
        const std::string name(text.substr(at + 1, end - at - 2));
        const auto known = placeholders.find(name);
        if (known == placeholders.end() || known->second.empty()) {
            *problem = "the placeholder \"" + name + "\" has no values";
            return false;
        }
        endings.clear();
        for (const std::string& value : known->second)
            endings.push_back(ReadPattern(value));
        if (!AppendEach(endings, budget, &made, problem))
            return false;
        at = end;
    }
    for (TextPattern& pattern : made)
        patterns->push_back(std::move(pattern));
    return true;
}

bool AppendDashForms(const TextPattern& pattern, ReadingBudget* budget,
                     std::vector<TextPattern>* patterns, std::string* problem) {
    static const std::vector<TextPattern> dashes = [] {
        std::vector<TextPattern> all;
        for (const std::string_view dash : dashTexts)
            all.push_back({{{Piece::Kind::text, std::string(dash)}}});
        return all;
    }();
    std::vector<TextPattern> made(1);
    const auto append = [&](const std::vector<TextPattern>& endings) {
        return AppendEach(endings, budget, &made, problem);
    };
    for (const Piece& piece : pattern.pieces) {
        std::size_t begin = 0;
        for (std::size_t at = 0; at < piece.text.size(); ++at) {
            const std::size_t bytes = DashAt(piece.text, at);
            if (bytes == 0)
                continue;
            if (!append({{{{Piece::Kind::text, piece.text.substr(begin, at - begin)}}}}) ||
                !append(dashes))
                return false;
            begin = at + bytes;
            at = begin - 1;
        }
        if (!append({{{{piece.kind, piece.text.substr(begin)}}}}))
            return false;
    }
    for (TextPattern& form : made)
        patterns->push_back(std::move(form));
    return true;
}

std::string ToUtf16Bytes(std::string_view utf8, Utf16Form form) {
    std::wstring wide;
    if (!wm::ToWide(utf8, wide))
        return {};
    std::string bytes;
    const auto append = [&](unsigned unit) {
        const std::array<char, 2> pair{static_cast<char>(unit & 0xFFU),
                                       static_cast<char>(unit >> 8U)};
        bytes += pair[form == Utf16Form::big ? 1 : 0];
        bytes += pair[form == Utf16Form::big ? 0 : 1];
    };
    if (form == Utf16Form::littleWithMark)
        append(0xFEFF);
    for (const wchar_t c : wide) {
        const auto code = static_cast<char32_t>(c);
        if (code > 0xFFFF)
            append(0xD7C0 + (code >> 10U));
        append(code > 0xFFFF ? 0xDC00 + (code & 0x3FFU) : code);
    }
    return bytes;
}

std::string ToBase64(std::string_view bytes) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= bytes.size() ? digits[group >> (18 - 6 * i) & 0x3FU] : '=';
    }
    return text;
}

std::vector<std::string> ToBase64Offsets(std::string_view bytes) {
    constexpr std::array<std::size_t, 3> fromFront = {0, 2, 3}, fromBack = {0, 3, 2};
    std::vector<std::string> texts;
    for (std::size_t offset = 0; offset < 3; ++offset) {
        const std::string text = ToBase64(std::string(offset, ' ') + std::string(bytes));
        const std::size_t begin = fromFront[offset];
        const std::size_t end = text.size() - fromBack[(bytes.size() + offset) % 3];
        texts.push_back(text.substr(begin, end - begin));
    }
    return texts;
}

}  // namespace zel
