#include "zelstore/schema/text.h"

#include <algorithm>
#include <stdexcept>
#include <type_traits>

#include "common/textbridge.h"

// Where the schema's text leaves for keys. The JSON library lets text through that is not Unicode,
// and a key must hold none: it would be found by no question that can be asked. So the way out
// checks, and does so without a copy where the text is UTF-8 already.

namespace ZEL::Schema {

namespace {

// One for each kind of text that the library has somewhere.
[[maybe_unused]] std::optional<std::string_view> Leave(std::string_view text, std::string&) {
    return wm::IsUtf8(text) ? std::optional(text) : std::nullopt;
}
[[maybe_unused]] std::optional<std::string_view> Leave(std::wstring_view text,
                                                       std::string& buffer) {
    return wm::ToUtf8(text, buffer) ? std::optional<std::string_view>(buffer) : std::nullopt;
}

[[maybe_unused]] void Enter(std::string_view utf8, std::string& out) {
    out = utf8;
}
[[maybe_unused]] void Enter(std::string_view utf8, std::wstring& out) {
    if (!wm::ToWide(utf8, out))
        throw std::range_error("text that is not UTF-8");
}

}  // namespace

Text FromUtf8(std::string_view utf8) {
    Text text;
    Enter(utf8, text);
    return text;
}

std::optional<std::string_view> ToUtf8(TextView text, std::string& buffer) {
    return Leave(text, buffer);
}

std::size_t CharacterCount(const Text& text) noexcept {
    if constexpr (!std::is_same_v<Text, std::string>)
        return text.size();
    const auto isFirstByte = [](auto c) { return (static_cast<unsigned>(c) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirstByte));
}

}  // namespace ZEL::Schema
