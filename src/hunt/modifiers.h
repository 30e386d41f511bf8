#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hunt/rule.h"
#include "hunt/ruletext.h"

namespace zel {

// What the modifiers behind a field's name ask for, brought into the one order in which they make
// sense: placeholders, dashes, encodings, then where in the value.
struct Modifiers {
    enum class Base64 : std::uint8_t { none, whole, offsets };

    // `isThere` and `equalsField` too; of a field's place in the value the kind says it.
    ValueTest::Kind kind = ValueTest::Kind::pattern;
    bool isAll = false, isCased = false, isNegated = false;
    bool expands = false, dashes = false;
    std::optional<Utf16Form> utf16;
    Base64 base64 = Base64::none;
    bool runAhead = false, runBehind = false;
    std::string flags;  // of an expression: "i", "m", "s"

    bool IsText() const noexcept { return kind == ValueTest::Kind::pattern; }
    bool IsPlaced() const noexcept { return runAhead || runBehind; }
};

// Of "contains|all"; the text behind the field's first bar. False, with the reason, for unknown
// ones and for those that can't stand together or not in that order.
bool ReadModifiers(std::string_view text, bool isKeyword, Modifiers* modifiers,
                   std::string* problem);

}  // namespace zel
