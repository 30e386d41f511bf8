#pragma once

#include <string>
#include <string_view>

#include "common/wmapi.h"

namespace wm {

// The text as a JSON string, with its quotes. What is no control character, quote or backslash
// stays as it is, so UTF-8 stays UTF-8.
WMLIB_API std::string JsonString(std::string_view utf8);

}  // namespace wm
