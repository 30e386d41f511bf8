#pragma once

#include <cpprest/details/basic_types.h>

#include <optional>
#include <string>
#include <string_view>

// A literal of the schema's text type. The JSON library's own short name for it, U, is switched
// off: it would rename template parameters all over.
#define ZEL_TEXT(literal) _XPLATSTR(literal)

namespace ZEL::Schema {

// Text of the schema is the JSON library's own (UTF-8 on Linux), so that nothing is converted
// twice.
using Text = utility::string_t;
// For names and literals, whose end is known: no length has to be counted at run time.
using TextView = std::basic_string_view<utility::char_t>;

// The way in. Wide text is checked, which the library's own conversion does not do; throws
// std::range_error for text that is not UTF-8 then.
Text FromUtf8(std::string_view utf8);

// The way out of the schema: the text as UTF-8, which is a view of the text itself or of `buffer`.
// None for text that is not Unicode: the parser lets lone surrogates and most malformed bytes
// through, and they end here. The view holds as long as both do.
std::optional<std::string_view> ToUtf8(TextView text, std::string& buffer);

// A character of UTF-8 may have several bytes; in wide text each unit counts. Text that is not
// UTF-8 is counted all the same, by its first bytes.
std::size_t CharacterCount(const Text& text) noexcept;

}  // namespace ZEL::Schema
