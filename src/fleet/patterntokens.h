#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel::fleet {

// The bytes that one place of a pattern takes. Bytes beyond ASCII are all of them in it, or none.
struct ByteSet {
    std::bitset<128> ascii;
    bool hasOthers = false;
};

// A piece of a regular expression (Perl syntax on bytes), as far as it means the same to another
// matcher.
struct PatternToken {
    enum Kind { literal, set, anyByte, wordEdge, open, close, bar } kind = literal;
    std::string text;  // of a literal: one character, in UTF-8
    ByteSet bytes;     // of a set, letter case already taken out
    // How often; of a group at its end.
    std::uint32_t least = 1, most = 1;
    static constexpr std::uint32_t endless = ~std::uint32_t{0};
};

struct PatternTokens {
    std::vector<PatternToken> tokens;
    // The piece that has no token, and the byte where it begins; empty when all have one.
    std::string unknown;
    std::size_t unknownAt = 0;
};
// Of an expression that the store compiles. What stands for itself at the very start and end of a
// text that is matched whole (^ and $) is left out.
PatternTokens ReadPattern(std::string_view expression, bool caseSensitive);

}  // namespace zel::fleet
