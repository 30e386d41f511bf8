#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zel::fleet {

// A pattern of the store as a condition in SQL.
struct PatternSql {
    std::string sql;  // empty: nothing can be said of it there
    // Whether it lets through what the pattern does; else more, and never less.
    bool isExact = true;
    // Where not: the piece that the server can't test, and its byte; empty for one that it tests
    // in a wider sense.
    std::string refused;
    std::size_t refusedAt = 0;
};
// `expression` is one that the store compiles, matched against the whole text of `column`.
PatternSql SqlOfPattern(std::string_view column, const std::string& expression, bool caseSensitive);

}  // namespace zel::fleet
