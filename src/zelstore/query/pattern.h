#pragma once

#include <boost/regex.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ZEL {

class EndWatch;

// A regular expression (Perl syntax) that a whole text has to match, byte by byte; without case,
// ASCII letters are folded. For one thread. A match changes nothing in it, but may take long: hand
// it the query's watch.
//
// Which matcher it uses is told by the expression alone, once, when it is made (pattern.cpp). The
// own one's time is bounded by text times expression.
class Pattern {
public:
    // What a match by the general matcher may cost: the bytes that it looks at, about a tenth of a
    // second's worth.
    static constexpr std::uint64_t mostLooks = 10'000'000;

    // Throws boost::regex_error when the expression does not compile, and std::runtime_error when
    // it is too long to find that out.
    Pattern(const std::string& expression, bool caseSensitive);

    // Throws std::runtime_error when the match is too costly, and GivenUp when `watch`, which may
    // be null, says so.
    bool Matches(std::string_view text, EndWatch* watch = nullptr,
                 std::uint64_t looks = mostLooks) const;

private:
    // A piece of a simple expression: a byte, or one of these.
    using Element = std::int16_t;
    static constexpr Element anyByte = -1;    // .
    static constexpr Element maybeByte = -2;  // .?
    static constexpr Element anyBytes = -3;   // .*
    using Elements = std::vector<Element>;

    // Fills elements_; false when only the general matcher will do, which then knows what is wrong
    // as well.
    bool ReadElements(std::string_view expression);
    void SplitPieces();
    bool Fits(Element element, char c) const noexcept;
    // The text must hold as many bytes as there are elements.
    std::size_t CountFitting(const Elements& elements, const char* text) const noexcept;
    // How many bytes may be passed over until the first one of the piece can stand there.
    std::size_t CountUnlike(const Elements& piece, std::string_view text) const noexcept;
    bool FitsAt(const Elements& piece, const char* text) const noexcept;
    bool CutBehind(const Elements& piece, std::string_view* text, EndWatch* watch) const;
    // The three ways to an answer, by what the expression holds.
    bool MatchesPieces(std::string_view text, EndWatch* watch) const;
    bool MatchesStates(std::string_view text, EndWatch* watch) const;
    bool MatchesGenerally(std::string_view text, EndWatch* watch, std::uint64_t looks) const;

    // Letters beyond ASCII are compared as they stand in either case.
    const bool caseSensitive_;
    Elements elements_;                  // of a simple expression
    std::vector<Elements> pieces_;       // what stands between its .*, unless it has a .?
    std::optional<boost::regex> regex_;  // any other expression
    Elements needed_;                    // what each of its matches holds; may be empty
};

}  // namespace ZEL
