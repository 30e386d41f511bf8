#pragma once

#include <string>
#include <string_view>

#include "common/countedptr.h"
#include "common/istringvalue.h"
#include "common/textbridge.h"

// String values for those who work with UTF-8.
namespace wm {

// A string value of a text that is known to be UTF-8; null when it is not, or without memory.
inline ZEL::CountedPtr<ZEL::IStringValue> ToValue(std::string_view utf8) noexcept {
    ZEL::IStringValue* made = nullptr;
    if (!CreateStringValue(utf8, &made))
        return nullptr;
    return ZEL::CountedPtr<ZEL::IStringValue>::Adopt(made);
}

// The text of a value, malformed parts replaced; empty for null.
inline std::string ToText(ZEL::IStringValue* value) {
    return value != nullptr ? ToUtf8Lossy({value->GetText(), value->GetLength(0)}) : "";
}

}  // namespace wm
