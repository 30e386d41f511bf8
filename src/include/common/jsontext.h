#pragma once

#include <string>
#include <string_view>

#include "common/wmapi.h"

namespace wm {

// The text as a JSON string, with its quotes. What is no control character, quote or backslash
// stays as it is, so UTF-8 stays UTF-8. Shared by all who write JSON by hand, so that texts are
// escaped in one way. Control characters become \u00XX, also those that have short forms. Malformed
// UTF-8 is passed on as it is: who can't rule it out checks it with IsUtf8.
WMLIB_API std::string JsonString(std::string_view utf8);

}  // namespace wm
