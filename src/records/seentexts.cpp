#include "records/seentexts.h"

#include <algorithm>
#include <cstring>
#include <random>

// A text is known by its mark: its words are the coefficients of a polynomial over the integers
// modulo the prime 2^61 - 1, which is evaluated at two points that are drawn anew for each table.
// Two texts of n words share a mark with a chance of at most (n / 2^61)^2, whoever wrote them: who
// would hide an event behind another one would have to guess the points.
//
// Words have 7 bytes, so that they are below the prime, and four of them are taken at a step, so
// that their products need not wait for each other.

namespace zel {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr unsigned primeBits = 61;
constexpr std::uint64_t prime = (std::uint64_t{1} << primeBits) - 1;
constexpr std::size_t wordSize = 7;  // bytes
constexpr std::size_t stepSize = 4 * wordSize;

std::uint64_t Reduce(Wide number) noexcept {
    number = (number & prime) + (number >> primeBits);
    const auto once = static_cast<std::uint64_t>(number);
    const std::uint64_t twice = (once & prime) + (once >> primeBits);
    return twice >= prime ? twice - prime : twice;
}

std::uint64_t Load(const char* at) noexcept {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, at, sizeof(bytes));
    return bytes;
}

// The four words at a place; nothing behind them is read.
std::array<std::uint64_t, 4> WordsAt(const char* at) noexcept {
    constexpr std::uint64_t mask = (std::uint64_t{1} << (8 * wordSize)) - 1;
    return {Load(at) & mask, Load(at + wordSize) & mask, Load(at + 2 * wordSize) & mask,
            Load(at + stepSize - sizeof(std::uint64_t)) >> 8};
}

}  // namespace

SeenTexts::Point::Point() {
    std::random_device device;
    const std::uint64_t high = device();
    powers[0] = ((high << 32) | device()) % prime;
    for (std::size_t i = 1; i < powers.size(); ++i)
        powers[i] = Reduce(static_cast<Wide>(powers[i - 1]) * powers[0]);
}

std::uint64_t SeenTexts::Point::Step(std::uint64_t sum,
                                     const std::array<std::uint64_t, 4>& words) const noexcept {
    return Reduce(static_cast<Wide>(sum) * powers[3] + static_cast<Wide>(words[0]) * powers[2] +
                  static_cast<Wide>(words[1]) * powers[1] +
                  static_cast<Wide>(words[2]) * powers[0] + words[3]);
}

SeenTexts::SeenTexts(std::size_t most) : most_(most) {}

// The rest is filled up with zeros; the length comes last, so that zeros at the end count. Plus
// one, since zeros are a free place.
SeenTexts::Mark SeenTexts::MarkOf(std::string_view text) const noexcept {
    Mark mark;
    const auto add = [&](const std::array<std::uint64_t, 4>& words) {
        mark.first = points_[0].Step(mark.first, words);
        mark.second = points_[1].Step(mark.second, words);
    };
    const std::size_t whole = text.size() - text.size() % stepSize;
    for (std::size_t at = 0; at < whole; at += stepSize)
        add(WordsAt(text.data() + at));
    char rest[stepSize] = {};
    text.copy(rest, stepSize, whole);
    add(WordsAt(rest));
    add({0, 0, 0, text.size()});
    ++mark.first;
    return mark;
}

// Where the mark stands, or the free place where it would.
SeenTexts::Mark& SeenTexts::PlaceOf(const Mark& mark) noexcept {
    const std::size_t mask = table_.size() - 1;
    std::size_t at = mark.first & mask;
    while (table_[at] != Mark() && table_[at] != mark)
        at = (at + 1) & mask;
    return table_[at];
}

void SeenTexts::Grow() {
    constexpr std::size_t smallest = 1024;
    std::vector<Mark> former(std::max(table_.size() * 2, smallest));
    former.swap(table_);
    for (const Mark& mark : former)
        if (mark != Mark())
            PlaceOf(mark) = mark;
}

std::uint64_t SeenTexts::NumberOf(std::string_view text) const noexcept {
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15;  // spreads 61 bits over 64
    const Mark mark = MarkOf(text);
    return mark.first * odd + mark.second;
}

bool SeenTexts::Insert(std::string_view text) {
    if (count_ * 3 >= table_.size() * 2)
        Grow();
    const Mark mark = MarkOf(text);
    Mark& place = PlaceOf(mark);
    if (place == mark)
        return false;
    if (!IsFull()) {
        place = mark;
        ++count_;
    }
    return true;
}

}  // namespace zel
