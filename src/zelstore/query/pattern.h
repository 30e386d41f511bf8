#pragma once

#include <boost/regex.hpp>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ZEL {

// A regular expression (Perl syntax) that a whole text has to match, byte by byte; without case,
// ASCII letters are folded. For one thread.
//
// Most patterns come from paths with * and ?. Such an expression, of plain characters, . and at
// most two .* only, is matched directly, several times faster and with the same answers: texts and
// expressions that the general matcher may give up on are left to it.
class Pattern {
public:
    // Throws boost::regex_error when the expression does not compile.
    Pattern(const std::string& expression, bool caseSensitive);

    // Throws std::runtime_error when the match is too costly.
    bool Matches(std::string_view text) const;

private:
    // One byte, or any byte.
    using Element = std::int16_t;
    static constexpr Element anyByte = -1;
    using Segment = std::vector<Element>;

    bool ReadSegments(std::string_view expression);
    Element ElementOf(char c) const noexcept;
    bool FitsAt(std::string_view text, std::size_t at, const Segment& segment) const noexcept;
    bool MatchesSegments(std::string_view text) const noexcept;

    const bool caseSensitive_;
    boost::regex regex_;
    std::vector<Segment> segments_;  // what stands between the .*; empty for other expressions
};

}  // namespace ZEL
