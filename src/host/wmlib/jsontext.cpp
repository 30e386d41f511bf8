#include "common/jsontext.h"

namespace wm {

std::string JsonString(std::string_view utf8) {
    // For control characters alone, so that two digits after a fixed start are enough.
    constexpr const char* digits = "0123456789abcdef";
    std::string out;
    out.reserve(utf8.size() + 2);
    out += '"';
    for (const char c : utf8) {
        if (c == '"' || c == '\\') {
            out.append(1, '\\').append(1, c);
        } else if (static_cast<unsigned char>(c) < 0x20) {
            out.append("\\u00").append(1, digits[c >> 4]).append(1, digits[c & 15]);
        } else {
            out += c;
        }
    }
    return out += '"';
}

}  // namespace wm
