#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

namespace ZEL {

// The number of an object type, as the store answers it for `type_id` and as sources write it. A
// key holds the type's name alone.
struct TypeNumber {
    std::string_view objectType;
    std::string_view number;  // decimal digits
};

inline constexpr TypeNumber typeNumbers[] = {
    {"session", "8000"},       {"process", "8001"}, {"module", "8002"},    {"file", "8003"},
    {"directory", "8004"},     {"reg_key", "8005"}, {"reg_value", "8006"}, {"network", "8007"},
    {"kernel_object", "8009"}, {"etw", "8015"},     {"amsi", "8018"},      {"url", "42"},
};

// Null for an object type that has none. The name is compared exactly.
constexpr const TypeNumber* FindTypeNumber(std::string_view objectType) noexcept {
    const auto* const found =
        std::find_if(std::begin(typeNumbers), std::end(typeNumbers),
                     [&](const TypeNumber& row) { return row.objectType == objectType; });
    return found != std::end(typeNumbers) ? found : nullptr;
}

}  // namespace ZEL
