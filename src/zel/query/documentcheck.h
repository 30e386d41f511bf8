#pragma once

#include <cpprest/json.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Looks a query document over before it runs. The store takes much that makes no sense, and answers
// it with no results or with too many; a person is better told.
namespace zel {

// Parses a document. On failure `problem` tells why, with line, column and a caret. `*document` is
// unchanged then. Stricter than the parser below it: what that would mend in silence, such as
// comments, is refused.
bool ParseDocument(std::string_view text, web::json::value* document, std::string* problem);

// Each finding begins with its place, such as event_query.events[0].action[1]. UTF-8, escaped,
// ready to be told; some have a second line with a caret.
struct DocumentFindings {
    std::vector<std::string> errors;    // the document is not to be run
    std::vector<std::string> warnings;  // what is accepted but has no effect
};
// Opens nothing and changes nothing; expands paths for the machine that queries are answered for,
// which may read its users.
DocumentFindings CheckDocument(const web::json::value& document);

// Compiles a pattern as the store does; what is wrong with it, and the byte where.
struct PatternProblem {
    std::string what;
    std::size_t at = 0;
};
// Nothing for a pattern that compiles. Whether it takes too long for some row only that row can
// tell.
std::optional<PatternProblem> TryPattern(const std::string& pattern, bool caseSensitive);

// As documents write them, in the store's order. They live as long as the program.
std::vector<std::string_view> ActionNames();
std::vector<std::string_view> ObjectTypeNames();  // those that a record can have

}  // namespace zel
