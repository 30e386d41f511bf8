#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zel {

// Knows which texts it was given before. It keeps 16 bytes of each, in a table that is at most
// three times as large as they are, and no more than `most` texts. For one thread. Two texts are
// taken for one with a chance that nobody can raise by choosing the texts, and that is too small to
// count.
class SeenTexts {
public:
    static constexpr std::size_t mostTexts = std::size_t{1} << 23;  // 256 MiB

    // Takes no memory before the first text.
    explicit SeenTexts(std::size_t most = mostTexts);

    // Whether the text is new. Beyond `most` texts nothing more is kept: what was kept is still
    // known, all else counts as new. Throws std::bad_alloc when the table can't grow; it then is as
    // it was.
    bool Insert(std::string_view text);
    // Once true, what Insert calls new may have come before.
    bool IsFull() const noexcept { return count_ >= most_; }

    // A number that stands for a text in place of a comparison: the same for equal texts, as long
    // as the object lives, and for others another one, but for a chance like the above.
    std::uint64_t NumberOf(std::string_view text) const noexcept;

private:
    // What is kept of a text; see the source for how sure it is.
    struct Mark {
        std::uint64_t first = 0, second = 0;
        bool operator==(const Mark&) const = default;
    };

    // One of the two points, as its first four powers.
    struct Point {
        Point();
        std::uint64_t Step(std::uint64_t sum,
                           const std::array<std::uint64_t, 4>& words) const noexcept;
        std::array<std::uint64_t, 4> powers{};
    };

    Mark MarkOf(std::string_view text) const noexcept;
    Mark& PlaceOf(const Mark& mark) noexcept;
    void Grow();

    const std::size_t most_;
    const std::array<Point, 2> points_;
    std::vector<Mark> table_;  // its size is a power of two; a mark of zeros is a free place
    std::size_t count_ = 0;
};

}  // namespace zel
