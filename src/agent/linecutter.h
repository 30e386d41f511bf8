#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace zel {

// A line, without its end, or an event's part of one: in a line that begins with XML each event
// ends a part.
struct CutLine {
    std::string_view text;     // lives for the call that gives it
    std::uint64_t number = 0;  // of the line, from 1
    std::uint64_t part = 0;    // of the line, from 0
    std::uint64_t offset = 0;  // where it begins in the input, in bytes
};

// Cuts lines out of bytes that come by and by. Lines of blanks alone are counted and not given. For
// one thread; memory is bounded by the longest line.
class LineCutter {
public:
    using Take = std::function<void(const CutLine& line)>;

    // Of a longer line the first bytes are given, one more than `longest`. The input begins at
    // `offset`.
    explicit LineCutter(std::size_t longest, std::uint64_t offset = 0)
        : longest_(longest), offset_(offset) {}

    // `isLast`: what lacks its end is given as well, and nothing follows.
    void Feed(std::string_view bytes, bool isLast, const Take& take);
    // Where the first line, or part of one, begins that was not given; its text is empty.
    CutLine Next() const noexcept { return {{}, number_, part_, offset_}; }

private:
    std::size_t CutOne(std::string_view rest, bool isLast, const Take& take);
    void Give(std::string_view text, const Take& take) const;

    const std::size_t longest_;
    std::string held_;  // what has come of a line
    std::uint64_t number_ = 1;
    std::uint64_t part_ = 0;
    std::uint64_t offset_;
    std::uint64_t passedOver_ = 0;  // bytes of a line that is too long, behind those held
};

}  // namespace zel
