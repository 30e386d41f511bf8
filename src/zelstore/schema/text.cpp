#include "zelstore/schema/text.h"

#include <algorithm>
#include <type_traits>

#include "common/textbridge.h"

// Where the schema's text leaves for keys. The JSON library lets text through that is not Unicode,
// and a key must hold none: it would be found by no question that can be asked. So the way out
// checks, and does so without a copy where the text is UTF-8 already.

namespace ZEL::Schema {

std::optional<std::string_view> ToUtf8(TextView text, std::string& buffer) {
    if constexpr (std::is_same_v<Text, std::string>) {
        if (wm::IsUtf8(text))
            return text;
    } else {
        if (wm::ToUtf8(std::wstring(text.begin(), text.end()), buffer))
            return buffer;
    }
    return std::nullopt;
}

std::size_t CharacterCount(const Text& text) noexcept {
    if constexpr (!std::is_same_v<Text, std::string>)
        return text.size();
    const auto isFirstByte = [](auto c) { return (static_cast<unsigned>(c) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirstByte));
}

}  // namespace ZEL::Schema
