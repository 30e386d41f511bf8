#include "zel/results/timeof.h"

namespace zel {

namespace {

// The place behind the string's closing quote; npos where there is none.
std::size_t BehindString(std::string_view text, std::size_t at) {
    for (++at; at < text.size(); ++at) {
        if (text[at] == '\\')
            ++at;
        else if (text[at] == '"')
            return at + 1;
    }
    return text.npos;
}

}  // namespace

// A string in front of a colon is a member's name. What is looked for is the text of the member
// `value` on the second level, below `begin_time` on the first.
std::string_view TimeOf(std::string_view event) {
    constexpr std::string_view blanks = " \t\r\n";
    int depth = 0;
    bool inTime = false, atValue = false;
    for (std::size_t at = 0; at < event.size();) {
        const char c = event[at];
        if (c != '"') {
            depth += (c == '{' || c == '[') - (c == '}' || c == ']');
            ++at;
            continue;
        }
        const std::size_t end = BehindString(event, at);
        if (end == event.npos)
            break;
        const std::string_view word = event.substr(at + 1, end - at - 2);
        at = event.find_first_not_of(blanks, end);
        const bool isName = at < event.size() && event[at] == ':';
        if (!isName && depth == 2 && inTime && atValue)
            return word;
        if (isName && depth == 1)
            inTime = word == "begin_time";
        if (isName && depth == 2)
            atValue = word == "value";
    }
    return {};
}

}  // namespace zel
