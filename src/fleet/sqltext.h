#pragma once

#include <string>
#include <string_view>

// Values in SQL. All that comes from outside gets into a statement through here, and nowhere else.

namespace zel::fleet {

// Appends a value as a text literal. Any UTF-8; it reads back as the same bytes.
void AppendSqlText(std::string& sql, std::string_view value);
std::string SqlText(std::string_view value);

// A value as a part of a pattern of LIKE: stands for itself alone. Not a literal yet.
std::string LikeText(std::string_view value);

// Folded as the server's lower() and upper() fold: ASCII letters alone.
std::string LowerAscii(std::string_view value);
std::string UpperAscii(std::string_view value);

}  // namespace zel::fleet
