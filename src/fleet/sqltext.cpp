#include "fleet/sqltext.h"

#include <algorithm>

#include "common/asciicase.h"

// The server reads a literal from quote to quote, with backslashes as escapes. A value holds any
// character, so the two that mean something there, and those that lines and tools trip over, are
// written as escapes. What is a pattern is escaped for LIKE first and as a literal then, so that
// its backslashes are doubled twice.

namespace zel::fleet {

namespace {

char EscapeOf(char c) noexcept {
    switch (c) {
        case '\'':
        case '\\':
            return c;
        case '\0':
            return '0';
        case '\t':
            return 't';
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        default:
            return 0;
    }
}

char LowerOf(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

void AppendSqlText(std::string& sql, std::string_view value) {
    sql += '\'';
    for (const char c : value) {
        if (const char escape = EscapeOf(c))
            sql.append(1, '\\').append(1, escape);
        else
            sql += c;
    }
    sql += '\'';
}

std::string SqlText(std::string_view value) {
    std::string sql;
    sql.reserve(value.size() + 2);
    AppendSqlText(sql, value);
    return sql;
}

std::string LikeText(std::string_view value) {
    std::string pattern;
    for (const char c : value) {
        if (c == '%' || c == '_' || c == '\\')
            pattern += '\\';
        pattern += c;
    }
    return pattern;
}

std::string LowerAscii(std::string_view value) {
    std::string folded(value);
    std::transform(folded.begin(), folded.end(), folded.begin(), LowerOf);
    return folded;
}

std::string UpperAscii(std::string_view value) {
    std::string folded(value);
    ZEL::MakeUpperAscii(folded);
    return folded;
}

}  // namespace zel::fleet
