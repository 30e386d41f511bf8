// Counted for each match of this file's iterators: so many states are some 50 ms.
#define BOOST_REGEX_MAX_STATE_COUNT 5000000
#include "zelstore/query/pattern.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

#include "common/asciicase.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/query/neededtext.h"

// Matching in bounded time.
//
// Most patterns come from paths with * and ?. They, and all other expressions of plain characters,
// ., .? and .* alone, are not given to the general matcher, which tries one way after the other and
// may need time without measure, or give up. Without .? such an expression is a row of pieces with
// anything in between: the first has to stand at the text's start, the last at its end, and each of
// the others is taken where it comes first, since what follows may then be longest. With .? all
// places in the expression that the text so far may have led to are followed at once. Either way
// the time is at most text times expression.
//
// Every other expression goes to the general matcher, on iterators that count the bytes it looks
// at. It is stopped, by an exception from within, when they are too many or when the query ends.
// Most texts are spared that: what an expression says in plain characters, outside of its groups,
// has to stand in each text that matches, and is looked for first.

namespace ZEL {

namespace {

constexpr std::string_view specialCharacters = ".[]{}()\\*+?|^$";
constexpr std::string_view quantifiers = "*+?{";
// Compiling takes time by the square of the length, in the worst case.
constexpr std::size_t longestCompiled = 0x10000;
constexpr std::uint64_t stepsPerLook = 5;

bool Take(std::string_view* expression, std::string_view start) {
    if (!expression->starts_with(start))
        return false;
    expression->remove_prefix(start.size());
    return true;
}

// What one match may still look at. The matcher looks at bytes through its iterators alone, so that
// counting there bounds it from outside. Counting goes down in slices: the watch and the budget are
// looked at once in 16,384 bytes.
class LookBudget {
public:
    LookBudget(EndWatch* watch, std::uint64_t looks) : watch_(watch), later_(looks) { Refill(); }
    ~LookBudget() {
        if (watch_ != nullptr && !isEndless_ && now_ >= 0)
            watch_->Spend((taken_ - static_cast<std::uint64_t>(now_)) * stepsPerLook);
    }
    LookBudget(const LookBudget&) = delete;
    LookBudget& operator=(const LookBudget&) = delete;

    void Count() {
        if (--now_ < 0) [[unlikely]]
            EndSlice();
    }

private:
    void Refill() {
        constexpr std::uint64_t slice = 0x4000;
        taken_ = std::min(slice, later_);
        later_ -= taken_;
        now_ = static_cast<std::int64_t>(taken_);
    }
    // The matcher cleans up in peace, and what it looks at meanwhile counts nothing.
    void MakeEndless() {
        now_ = std::numeric_limits<std::int64_t>::max();
        isEndless_ = true;
    }
    void EndSlice() {
        const std::uint64_t used = taken_;
        Refill();
        const bool isUsedUp = taken_ == 0;
        if (isUsedUp || (watch_ != nullptr && watch_->GivesUp()))
            MakeEndless();
        Spend(watch_, used * stepsPerLook);
        if (isUsedUp)
            throw std::runtime_error("the match exceeds the complexity that is allowed");
    }

    EndWatch* const watch_;
    std::uint64_t later_;
    std::uint64_t taken_ = 0;
    std::int64_t now_ = 0;
    bool isEndless_ = false;
};

// A place in a text, as the general matcher wants it.
class CountedPlace {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountedPlace() = default;
    CountedPlace(const char* at, LookBudget* budget) : at_(at), budget_(budget) {}

    reference operator*() const {
        budget_->Count();
        return *at_;
    }
    reference operator[](difference_type n) const { return *(*this + n); }
    CountedPlace& operator++() { return *this += 1; }
    CountedPlace& operator--() { return *this += -1; }
    CountedPlace operator++(int) { return {std::exchange(at_, at_ + 1), budget_}; }
    CountedPlace operator--(int) { return {std::exchange(at_, at_ - 1), budget_}; }
    CountedPlace& operator+=(difference_type n) {
        at_ += n;
        return *this;
    }
    CountedPlace& operator-=(difference_type n) { return *this += -n; }
    CountedPlace operator+(difference_type n) const { return {at_ + n, budget_}; }
    CountedPlace operator-(difference_type n) const { return {at_ - n, budget_}; }
    difference_type operator-(const CountedPlace& other) const { return at_ - other.at_; }
    bool operator==(const CountedPlace& other) const { return at_ == other.at_; }
    auto operator<=>(const CountedPlace& other) const { return at_ <=> other.at_; }

private:
    const char* at_ = nullptr;
    LookBudget* budget_ = nullptr;
};

}  // namespace

// Simple expressions are tried first; the general matcher is also the one who tells what is wrong.
Pattern::Pattern(const std::string& expression, bool caseSensitive)
    : caseSensitive_(caseSensitive) {
    if (ReadElements(expression)) {
        if (std::find(elements_.begin(), elements_.end(), maybeByte) == elements_.end())
            SplitPieces();
        return;
    }
    if (expression.size() > longestCompiled)
        throw std::runtime_error("the expression exceeds the complexity that is allowed");
    regex_.emplace(expression,
                   caseSensitive ? boost::regex_constants::normal
                                 : boost::regex_constants::normal | boost::regex_constants::icase);
    constexpr std::size_t leastNeeded = 2;  // a single character stands in most texts
    const std::string needed = NeededText(expression);
    for (std::size_t i = 0; i < needed.size() && needed.size() >= leastNeeded; ++i)
        needed_.push_back(
            static_cast<unsigned char>(caseSensitive ? needed[i] : ToUpperAscii(needed[i])));
}

bool Pattern::Matches(std::string_view text, EndWatch* watch, std::uint64_t looks) const {
    if (regex_)
        return MatchesGenerally(text, watch, looks);
    return pieces_.empty() ? MatchesStates(text, watch) : MatchesPieces(text, watch);
}

// False when the expression says more than elements can, or something wrong.
bool Pattern::ReadElements(std::string_view expression) {
    if (expression.empty())
        return false;
    while (!expression.empty()) {
        const bool escaped = Take(&expression, "\\");
        if (expression.empty())
            return false;
        const char c = expression.front();
        const bool isSpecial = specialCharacters.find(c) != std::string_view::npos;
        if (escaped ? !isSpecial : isSpecial && c != '.')
            return false;
        expression.remove_prefix(1);
        if (escaped || c != '.')
            elements_.push_back(static_cast<unsigned char>(caseSensitive_ ? c : ToUpperAscii(c)));
        else
            elements_.push_back(Take(&expression, "*")   ? anyBytes
                                : Take(&expression, "?") ? maybeByte
                                                         : anyByte);
        if (elements_.back() == anyByte)
            Take(&expression, "{1}");  // as a ? of a path reads
        if (!expression.empty() && quantifiers.find(expression.front()) != std::string_view::npos)
            return false;
    }
    return true;
}

void Pattern::SplitPieces() {
    pieces_.emplace_back();
    for (const Element element : elements_) {
        if (element == anyBytes)
            pieces_.emplace_back();
        else
            pieces_.back().push_back(element);
    }
}

bool Pattern::Fits(Element element, char c) const noexcept {
    return element == static_cast<unsigned char>(caseSensitive_ ? c : ToUpperAscii(c)) ||
           element == anyByte || element == maybeByte;
}

// How many of the elements fit the bytes from `text` on, one each, until one does not.
std::size_t Pattern::CountFitting(const Elements& elements, const char* text) const noexcept {
    std::size_t fitting = 0;
    while (fitting < elements.size() && Fits(elements[fitting], text[fitting]))
        ++fitting;
    return fitting;
}

bool Pattern::FitsAt(const Elements& piece, const char* text) const noexcept {
    return CountFitting(piece, text) == piece.size();
}

std::size_t Pattern::CountUnlike(const Elements& piece, std::string_view text) const noexcept {
    if (piece.empty() || piece.front() < 0)
        return 0;
    const char upper = static_cast<char>(piece.front());
    const char lower =
        caseSensitive_ || upper < 'A' || upper > 'Z' ? upper : static_cast<char>(upper - 'A' + 'a');
    std::size_t unlike = 0;
    while (unlike < text.size() && text[unlike] != upper && text[unlike] != lower)
        ++unlike;
    return unlike;
}

// Cuts `*text` behind the first place where the piece fits; false when there is none.
bool Pattern::CutBehind(const Elements& piece, std::string_view* text, EndWatch* watch) const {
    constexpr std::uint64_t mostUntold = 4096;
    std::uint64_t steps = 0;
    for (; text->size() >= piece.size(); text->remove_prefix(1)) {
        const std::size_t unlike = CountUnlike(piece, *text);
        text->remove_prefix(unlike);
        steps += unlike;
        if (text->size() < piece.size())
            break;
        const std::size_t fitting = CountFitting(piece, text->data());
        if (fitting == piece.size()) {
            text->remove_prefix(fitting);
            return true;
        }
        steps += fitting + 1;
        if (steps > mostUntold)
            Spend(watch, std::exchange(steps, 0));
    }
    return false;
}

// What stands between the first and the last piece is searched from left to right: taking each
// piece at its first place leaves the most for the ones behind, so that no choice is ever taken
// back.
bool Pattern::MatchesPieces(std::string_view text, EndWatch* watch) const {
    Spend(watch, text.size() + elements_.size());
    const Elements& first = pieces_.front();
    if (pieces_.size() == 1)
        return text.size() == first.size() && FitsAt(first, text.data());
    const Elements& last = pieces_.back();
    if (text.size() < first.size() + last.size() ||
        !FitsAt(last, text.data() + text.size() - last.size()) || !FitsAt(first, text.data()))
        return false;
    text.remove_prefix(first.size());
    text.remove_suffix(last.size());
    return std::all_of(pieces_.begin() + 1, pieces_.end() - 1,
                       [&](const Elements& piece) { return CutBehind(piece, &text, watch); });
}

// All ways through the expression at once, a step for each byte of the text; no way is tried again.
bool Pattern::MatchesStates(std::string_view text, EndWatch* watch) const {
    const std::size_t count = elements_.size();
    // Whether the first i elements can take what was read of the text.
    std::vector<char> reached(count + 1, 0);
    const auto passOverOptional = [&] {
        for (std::size_t i = 0; i < count; ++i)
            if (reached[i] != 0 && (elements_[i] == anyBytes || elements_[i] == maybeByte))
                reached[i + 1] = 1;
    };
    reached[0] = 1;
    passOverOptional();
    for (const char c : text) {
        Spend(watch, count * 2);
        for (std::size_t i = count + 1; i-- > 0;) {
            const bool stays = i < count && elements_[i] == anyBytes && reached[i] != 0;
            const bool comes = i > 0 && reached[i - 1] != 0 && Fits(elements_[i - 1], c);
            reached[i] = stays || comes ? 1 : 0;
        }
        passOverOptional();
    }
    return reached[count] != 0;
}

bool Pattern::MatchesGenerally(std::string_view text, EndWatch* watch, std::uint64_t looks) const {
    std::string_view rest = text;
    if (!needed_.empty() && !CutBehind(needed_, &rest, watch))
        return false;
    LookBudget budget(watch, looks);
    const CountedPlace begin(text.data(), &budget);
    return boost::regex_match(begin, begin + static_cast<std::ptrdiff_t>(text.size()), *regex_,
                              boost::regex_constants::match_any);
}

}  // namespace ZEL
