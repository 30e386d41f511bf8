#pragma once

#include <string>
#include <string_view>

#include "common/countedptr.h"
#include "common/istringvalue.h"
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

// The text of a value, malformed parts replaced; empty for null. For showing. What is stored or
// compared goes through ToUtf8, which refuses malformed parts.
inline std::string ToText(ZEL::IStringValue* value) {
    return value != nullptr ? ToUtf8Lossy({value->GetText(), value->GetLength(0)}) : "";
}

}  // namespace wm
