#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// A word of a search line.
struct SearchWord {
    std::string text;       // without its quotes
    std::size_t at = 0;     // its first byte
    std::size_t begin = 0;  // the same, behind a quote that it begins with
    std::size_t end = 0;    // the byte behind it
};
// Blanks part words; '...' and "..." keep them, \" stands for a quote within the latter, and \' or
// \" outside of both. Any other backslash is one. `*isOpen`: the last word's quote has no end.
std::vector<SearchWord> SearchWordsOf(std::string_view line, bool* isOpen);

// So that a POSIX shell, and SearchWordsOf, take it for one word.
std::string ShellQuoted(const std::string& text);

// A flag that a search line takes.
struct SearchFlag {
    enum Kind { alone, text, object, action, where, time, zone, ofPage };
    std::string_view name;  // as a parameter: target_path
    Kind kind = text;
    bool isOfKey = false;
    std::string_view column{};  // whose values are its values; empty for most
    std::string_view hint{};
};
// By its name as a flag or a parameter; null when there is none.
const SearchFlag* FindSearchFlag(std::string_view name);
// As flags. Views that live as long as the program.
std::vector<std::string_view> SearchFlagNames();

}  // namespace zel
