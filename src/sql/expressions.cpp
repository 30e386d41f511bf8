#include "sql/expressions.h"

#include <re2/re2.h>

#include <exception>
#include <memory>
#include <string>

// SQLite has the operator and leaves the function to others.

namespace zel {

namespace {

re2::StringPiece TextOf(sqlite3_value* value) {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return {text != nullptr ? text : "", static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

std::unique_ptr<re2::RE2> Compile(re2::StringPiece pattern) {
    re2::RE2::Options options;
    options.set_log_errors(false);
    options.set_dot_nl(true);
    return std::make_unique<re2::RE2>(pattern, options);
}

// The arguments are the pattern and the text, in this order. A constant pattern stays compiled for
// the statement.
void Match(sqlite3_context* context, sqlite3_value** arguments) {
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL ||
        sqlite3_value_type(arguments[1]) == SQLITE_NULL)
        return;
    auto* pattern = static_cast<re2::RE2*>(sqlite3_get_auxdata(context, 0));
    std::unique_ptr<re2::RE2> fresh;
    if (pattern == nullptr) {
        fresh = Compile(TextOf(arguments[0]));
        pattern = fresh.get();
    }
    if (!pattern->ok()) {
        const std::string why = "REGEXP: " + pattern->error();
        return sqlite3_result_error(context, why.c_str(), static_cast<int>(why.size()));
    }
    sqlite3_result_int(context, re2::RE2::PartialMatch(TextOf(arguments[1]), *pattern) ? 1 : 0);
    if (fresh)
        sqlite3_set_auxdata(context, 0, fresh.release(),
                            [](void* held) { delete static_cast<re2::RE2*>(held); });
}

void Regexp(sqlite3_context* context, int, sqlite3_value** arguments) {
    try {
        Match(context, arguments);
    } catch (const std::exception&) {
        sqlite3_result_error_nomem(context);
    }
}

}  // namespace

// A function can't be replaced while a statement runs, such as one that loads the extension; the
// program then keeps its own.
int RegisterExpressions(sqlite3* database) {
    const int result = sqlite3_create_function_v2(
        database, "regexp", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
        Regexp, nullptr, nullptr, nullptr);
    return result == SQLITE_BUSY ? SQLITE_OK : result;
}

}  // namespace zel
