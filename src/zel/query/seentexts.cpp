#include "zel/query/seentexts.h"

#include <algorithm>
#include <cstring>
#include <random>

// A text is known by its mark: its words as the coefficients of a polynomial over the integers
// modulo the prime 2^61 - 1, which is evaluated at two points that are drawn anew in each process.
// Two texts of n words share a mark with a chance of at most (n / 2^61)^2, whoever wrote them: who
// would hide an event behind another one would have to guess the points.

namespace zel {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t prime = (std::uint64_t{1} << 61) - 1;
constexpr std::size_t wordSize = 7;  // bytes; such words are below the prime

std::uint64_t MultiplyAdd(std::uint64_t a, std::uint64_t b, std::uint64_t c) noexcept {
    const Wide product = static_cast<Wide>(a) * b + c;
    const std::uint64_t sum =
        (static_cast<std::uint64_t>(product) & prime) + static_cast<std::uint64_t>(product >> 61);
    return sum >= prime ? sum - prime : sum;
}

std::uint64_t Word(const char* at, std::size_t size) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, at, size);
    return word;
}

std::uint64_t DrawPoint() {
    std::random_device device;
    const std::uint64_t high = device();
    return ((high << 32) | device()) % prime;
}

}  // namespace

SeenTexts::SeenTexts(std::size_t most) : most_(most) {
    for (std::uint64_t& key : keys_)
        key = DrawPoint();
}

// The length comes last, so that zeros at the end count. Plus one, since zeros are a free place.
SeenTexts::Mark SeenTexts::MarkOf(std::string_view text) const noexcept {
    Mark mark{1, 1};
    const auto add = [&](std::uint64_t word) {
        mark.first = MultiplyAdd(mark.first, keys_[0], word);
        mark.second = MultiplyAdd(mark.second, keys_[1], word);
    };
    const std::size_t whole = text.size() - text.size() % wordSize;
    for (std::size_t at = 0; at < whole; at += wordSize)
        add(Word(text.data() + at, wordSize));
    add(Word(text.data() + whole, text.size() - whole));
    add(text.size());
    mark.first += 1;
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
