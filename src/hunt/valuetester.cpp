#include "hunt/valuetester.h"

#include <re2/re2.h>

#include <charconv>

#include "common/asciicase.h"
#include "hunt/textpattern.h"

namespace zel {

namespace {

using Kind = ValueTest::Kind;
using PieceKind = TextPattern::Piece::Kind;

bool IsWhole(std::string_view value, std::string_view text, bool cased) {
    return cased ? value == text : ZEL::EqualsNoCase(value, text);
}

bool IsStart(std::string_view value, std::string_view text, bool cased) {
    return value.size() >= text.size() && IsWhole(value.substr(0, text.size()), text, cased);
}

bool IsEnd(std::string_view value, std::string_view text, bool cased) {
    return value.size() >= text.size() &&
           IsWhole(value.substr(value.size() - text.size()), text, cased);
}

}  // namespace

std::optional<double> RuleNumberIn(std::string_view value) {
    double number = 0;
    const char* const end = value.data() + value.size();
    if (value.find_first_not_of("0123456789.-") != value.npos)  // "nan" would be a number
        return std::nullopt;
    const auto parsed = std::from_chars(value.data(), end, number, std::chars_format::fixed);
    return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(number) : std::nullopt;
}

ValueTester::ValueTester(const ValueTest& test) : test_(&test) {
    if (test.kind != Kind::pattern)
        return;
    const auto& pieces = test.pattern.pieces;
    const auto is = [&](std::size_t piece, PieceKind kind) { return pieces[piece].kind == kind; };
    way_ = Way::pieces;
    std::size_t text = 0;
    if (pieces.empty()) {
        way_ = Way::whole;
        return;
    }
    if (pieces.size() == 1 && is(0, PieceKind::text)) {
        way_ = Way::whole;
    } else if (pieces.size() == 2 && is(0, PieceKind::text) && is(1, PieceKind::anyRun)) {
        way_ = Way::start;
    } else if (pieces.size() == 2 && is(0, PieceKind::anyRun) && is(1, PieceKind::text)) {
        way_ = Way::end;
        text = 1;
    } else if (pieces.size() == 3 && is(0, PieceKind::anyRun) && is(1, PieceKind::text) &&
               is(2, PieceKind::anyRun)) {
        way_ = Way::part;
        text = 1;
        if (!test.cased)
            search_.emplace(pieces[1].text);
    }
    if (way_ != Way::pieces)
        text_ = pieces[text].text;
}

bool ValueTester::FitsText(std::string_view value) const {
    switch (way_) {
        case Way::whole:
            return IsWhole(value, text_, test_->cased);
        case Way::start:
            return IsStart(value, text_, test_->cased);
        case Way::end:
            return IsEnd(value, text_, test_->cased);
        case Way::part:
            return search_ ? search_->IsIn(value) : value.find(text_) != value.npos;
        default:
            return zel::Fits(test_->pattern, test_->cased, value);
    }
}

bool ValueTester::FitsNumber(std::string_view value) const {
    const auto number = RuleNumberIn(value);
    if (!number)
        return false;
    switch (test_->kind) {
        case Kind::less:
            return *number < test_->number;
        case Kind::atMost:
            return *number <= test_->number;
        case Kind::greater:
            return *number > test_->number;
        default:
            return *number >= test_->number;
    }
}

bool ValueTester::Fits(std::string_view value) const {
    switch (test_->kind) {
        case Kind::pattern:
            return FitsText(value);
        case Kind::expression:
            return RE2::PartialMatch(re2::StringPiece(value.data(), value.size()),
                                     *test_->expression);
        case Kind::network:
            return test_->network.Holds(value);
        case Kind::less:
        case Kind::atMost:
        case Kind::greater:
        case Kind::atLeast:
            return FitsNumber(value);
        default:
            return false;
    }
}

bool ValueTester::FitsOther(std::string_view value, std::string_view other) const {
    switch (test_->kind) {
        case Kind::equalsField:
            return IsWhole(value, other, test_->cased);
        case Kind::startsWithField:
            return IsStart(value, other, test_->cased);
        case Kind::endsWithField:
            return IsEnd(value, other, test_->cased);
        case Kind::containsField:
            return test_->cased ? value.find(other) != value.npos : TextSearch(other).IsIn(value);
        default:
            return false;
    }
}

bool ValueTester::IsOfPresence() const noexcept {
    return test_->kind == Kind::isThere || test_->kind == Kind::isNull;
}

bool ValueTester::IsOfOtherField() const noexcept {
    return test_->kind >= Kind::equalsField;
}

std::string ValueTester::Words() const {
    static constexpr std::string_view ways[] = {"is ", "starts with ", "ends with ", "contains "};
    static constexpr std::string_view kinds[] = {"fits ",
                                                 "fits the expression ",
                                                 "is in ",
                                                 "< ",
                                                 "<= ",
                                                 "> ",
                                                 ">= ",
                                                 "is there",
                                                 "is missing",
                                                 "is the same as ",
                                                 "starts with that of ",
                                                 "ends with that of ",
                                                 "contains that of "};
    if (test_->pattern.pieces.empty() && test_->kind == Kind::pattern)
        return "is empty";
    if (way_ <= Way::part)
        return std::string(ways[static_cast<std::size_t>(way_)]).append(text_);
    std::string words(kinds[static_cast<std::size_t>(test_->kind)]);
    return IsOfPresence() ? words : words.append(test_->text);
}

}  // namespace zel
