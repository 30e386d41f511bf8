#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Text that strangers wrote, as a terminal can show it: one line, no control character, in a known
// number of columns. All is UTF-8.
namespace zel {

// Control characters, marks that turn the direction of writing, and malformed bytes become escapes
// such as \n, \x1b, \u202e. The result is well-formed. The escapes are for reading and can't be
// turned back: a text may hold the same characters itself.
std::string Escaped(std::string_view text);

// The same JSON, in which what JSON lets stand as it is and a terminal would obey or hide is an
// escape: U+007F to U+009F, and marks that turn the direction of writing or take no room.
std::string EscapedJson(std::string_view json);

// Columns that the escaped text takes. By the usual widths of characters; terminals differ for new
// pictures, so a column may be off by one there.
std::size_t DisplayWidth(std::string_view text);

// The escaped text cut to `columns`, with an ellipsis where something went. No character is split.
// `start` for texts that say most in front, `end` for paths, whose file name stands last.
enum class Keep { start, end };
std::string Fit(std::string_view text, std::size_t columns, Keep keep);

// The text on a line of its own and a caret under its byte `at`. Two lines without a newline at the
// end, each indented by two columns, to be put behind a message. A byte at or behind the end points
// behind the text.
std::string PointAt(std::string_view text, std::size_t at);

// The name among `known` that was probably meant, or none. Case counts. The farther a name is from
// all of them the sooner nothing is suggested, as a wrong suggestion is worse than the list. The
// result points into `known`.
std::string_view Nearest(std::string_view name, const std::string_view* known, std::size_t count);

// "unknown action "creat"; did you mean "create"?" Where no name is near all of them are listed.
std::string UnknownName(std::string_view what, std::string_view name,
                        const std::vector<std::string_view>& known);

}  // namespace zel
