#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zel {

// The pattern of a registry path that begins with a root, such as HKLM\\Software\\.* or
// HKEY_USERS.., with the root in each of its forms: none for a pattern without one. The store
// itself turns roots into the long form, in which few sensors write them; what comes out here it
// takes as it stands. Both are UTF-8, and regular expressions in the syntax of `fits_pattern`, so
// that a backslash stands twice. Roots are known in any letter case. A pattern whose root is only a
// part of a longer name is one without a root.
std::optional<std::string> WithAnyRoot(std::string_view pattern);

}  // namespace zel
