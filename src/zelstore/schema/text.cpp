#include "zelstore/schema/text.h"

#include <type_traits>

#include "common/textbridge.h"

namespace ZEL::Schema {

std::optional<std::string_view> ToUtf8(const Text& text, std::string& buffer) {
    if constexpr (std::is_same_v<Text, std::string>) {
        if (wm::IsUtf8(text))
            return text;
    } else {
        if (wm::ToUtf8(std::wstring(text.begin(), text.end()), buffer))
            return buffer;
    }
    return std::nullopt;
}

}  // namespace ZEL::Schema
