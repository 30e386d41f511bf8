#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/readingbudget.h"
#include "hunt/rule.h"
#include "hunt/rulereader.h"

namespace zel {

// Texts of rules and what modifiers make of them. Any thread.

// `*` and `?` stand for other characters unless a backslash is ahead of them; in front of anything
// but `*`, `?` and `\` a backslash is itself.
TextPattern ReadPattern(std::string_view text);
// Keeps what TextPattern promises: texts and runs side by side become one.
void Append(TextPattern* pattern, TextPattern::Piece piece);
// The pattern with a run of any characters ahead of it or behind it.
TextPattern Unbound(const TextPattern& pattern, bool ahead, bool behind);
// The text of a pattern without wildcards; none of others.
std::optional<std::string> PlainText(const TextPattern& pattern);

// The routines below append what they make. False, with the reason, where they can't.

// With each %name% written out; `\%` is a percent sign.
bool ExpandPlaceholders(std::string_view text, const Placeholders& placeholders,
                        ReadingBudget* budget, std::vector<TextPattern>* patterns,
                        std::string* problem);
// All forms of a command line in which each of the dashes - / – — ― that stands ahead of a word,
// and not within one, is any of them.
bool AppendDashForms(const TextPattern& pattern, ReadingBudget* budget,
                     std::vector<TextPattern>* patterns, std::string* problem);

enum class Utf16Form : std::uint8_t { little, big, littleWithMark };
std::string ToUtf16Bytes(std::string_view utf8, Utf16Form form);
std::string ToBase64(std::string_view bytes);
// What surely stands in the base64 of any bytes that hold these: one text for each of the three
// places within a group of three bytes. Needs two bytes.
std::vector<std::string> ToBase64Offsets(std::string_view bytes);

}  // namespace zel
