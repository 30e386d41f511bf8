#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/countedptr.h"
#include "common/istringvalue.h"
#include "common/iutf8value.h"
#include "common/textbridge.h"

// String values for those who work with UTF-8.
//
// The two directions differ in strictness on purpose: what comes from the store is UTF-8 or is
// damaged, and what comes from a host is shown as well as it can be.
namespace wm {

// A string value of a text that is known to be UTF-8; null when it is not, or without memory. Who
// has to tell the two failures apart calls CreateStringValue.
inline ZEL::CountedPtr<ZEL::IStringValue> ToValue(std::string_view utf8) noexcept {
    ZEL::IStringValue* made = nullptr;
    if (!CreateStringValue(utf8, &made))
        return nullptr;
    return ZEL::CountedPtr<ZEL::IStringValue>::Adopt(made);
}

// The UTF-8 that a value keeps, which is valid as long as the value is; none when it keeps wide
// text alone.
inline std::optional<std::string_view> KeptUtf8(ZEL::IStringValue& value) noexcept {
    ZEL::CountedPtr<ZEL::IUtf8Value> face;
    if (Failed(value.QueryInterface(ZEL::iidUtf8Value, face.ReceiveVoid())) || !face)
        return std::nullopt;
    std::size_t bytes = 0;
    const char* const text = face->GetUtf8(&bytes);
    return std::string_view(text, bytes);
}

// The text of a value in UTF-8: the value's own, or converted into `buffer`. None for text that is
// not Unicode. The view holds as long as both do. Throws without memory.
inline std::optional<std::string_view> Utf8Of(ZEL::IStringValue& value, std::string& buffer) {
    if (const auto kept = KeptUtf8(value))
        return kept;
    if (!ToUtf8({value.GetText(), value.GetLength(0)}, buffer))
        return std::nullopt;
    return buffer;
}

// The text of a value, malformed parts replaced; empty for null. For showing. What is stored or
// compared goes through Utf8Of, which refuses malformed parts.
inline std::string ToText(ZEL::IStringValue* value) {
    if (value == nullptr)
        return "";
    if (const auto kept = KeptUtf8(*value))
        return std::string(*kept);
    return ToUtf8Lossy({value->GetText(), value->GetLength(0)});
}

}  // namespace wm
