#pragma once

#include <string>
#include <string_view>

namespace zel {

// The text for a place between tags or within quotes of HTML: nothing in it is markup. Control
// characters but line ends and tabs stand as signs, those that can't be seen or turn the direction
// as [U+202E], since they could make a text look like another.
std::string HtmlText(std::string_view text);

// A text of JSON with a line for each member, as HtmlText; what is no JSON as it stands.
std::string HtmlOfJson(std::string_view json);

}  // namespace zel
