#pragma once

#include <string_view>

#include "common/result.h"
#include "common/utctime.h"
#include "zelstore/schema/vocabulary.h"

// Times are text in UTC, 24 characters such as 2026-11-12T10:00:00.000Z: text order is time order.
namespace ZEL::Schema {

// The lowest time that there is; the open lower end of a range. No earlier time can be counted
// with: it is where the file times of Windows begin.
inline constexpr const utility::char_t* zeroDate = ZEL_TEXT("1601-01-01T00:00:00.000Z");

// In the one form above.
Text FormatTimestamp(const wm::SystemTime& time);

// Takes 20 or 24 characters, with T, a bar or a blank between date and time. Digits are checked by
// form alone: a month of 19 or a day of 39 passes. 0x80070057 for an empty text, 0x800705B6 for
// fewer than 20 or more than 24 characters, 0x8007000D for another form. A text without
// milliseconds means 0 of them. On failure `*time` stays as it was. Throws nothing.
HRESULT ParseTimestamp(const Text& text, wm::SystemTime* time);

// Shifts a time and gives it in canonical form. A date that does not exist, before or after the
// shift, gives 0000-00-00T00:00:00.000Z and success: that sorts ahead of every real date. A text
// that can't be parsed gives the failures of ParseTimestamp, and `*out` stays. May throw without
// memory.
HRESULT AdjustTimestamp(const Text& text, std::int32_t milliseconds, Text* out);

}  // namespace ZEL::Schema
