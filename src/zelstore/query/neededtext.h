#pragma once

#include <string>
#include <string_view>

namespace ZEL {

// The longest text, of the expression's own plain characters, that stands in everything which a
// regular expression (Perl syntax) matches. Empty when there is none or that can't be told. The
// expression is known to compile.
std::string NeededText(std::string_view expression);

}  // namespace ZEL
