#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zel {

// The pattern of a registry path that begins with a root, such as HKLM\\Software\\.* or
// HKEY_USERS.., with the root in each of its forms: none for a pattern without one. The store
// itself turns roots into the long form, in which few sensors write them; what comes out here it
// takes as it stands.
std::optional<std::string> WithAnyRoot(std::string_view pattern);

}  // namespace zel
