#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Text that strangers wrote, as a terminal can show it: one line, no control character, in a known
// number of columns. All is UTF-8.
namespace zel {

// Control characters, marks that turn the direction of writing, and malformed bytes become escapes
// such as \n, \x1b, \u202e. The result is well-formed.
std::string Escaped(std::string_view text);

// Columns that the escaped text takes.
std::size_t DisplayWidth(std::string_view text);

// The escaped text cut to `columns`, with an ellipsis where something went. No character is split.
enum class Keep { start, end };
std::string Fit(std::string_view text, std::size_t columns, Keep keep);

// The text on a line of its own and a caret under its byte `at`.
std::string PointAt(std::string_view text, std::size_t at);

// The name among `known` that was probably meant, or none.
std::string_view Nearest(std::string_view name, const std::string_view* known, std::size_t count);

// "unknown action "creat"; did you mean "create"?"
std::string UnknownName(std::string_view what, std::string_view name,
                        const std::vector<std::string_view>& known);

}  // namespace zel
