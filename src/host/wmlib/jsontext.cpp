#include "common/jsontext.h"

#include <algorithm>

namespace wm {

std::string JsonString(std::string_view utf8) {
    // For control characters alone, so that two digits after a fixed start are enough.
    constexpr const char* digits = "0123456789abcdef";
    std::string out;
    out.reserve(utf8.size() + utf8.size() / 8 + 2);  // paths have what is escaped
    out += '"';
    const auto isPlain = [](char c) {
        return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= 0x20;
    };
    while (!utf8.empty()) {
        const auto end = std::find_if_not(utf8.begin(), utf8.end(), isPlain);
        const auto plain = static_cast<std::size_t>(end - utf8.begin());
        out.append(utf8.substr(0, plain));
        utf8.remove_prefix(plain);
        if (utf8.empty())
            break;
        const char c = utf8.front();
        if (c == '"' || c == '\\')
            out.append(1, '\\').append(1, c);
        else
            out.append("\\u00").append(1, digits[c >> 4]).append(1, digits[c & 15]);
        utf8.remove_prefix(1);
    }
    return out += '"';
}

}  // namespace wm
