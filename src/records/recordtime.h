#pragma once

#include <string_view>

// The one form in which a record's time can be found again: the store compares times as texts.
namespace zel {

// Whether it looks like 2026-11-12T10:00:00.000Z. Whether there is such a time the other tells.
bool IsRecordTime(std::string_view time);
// Of a time of that form: whether it is a time, from 1601 on. Seconds go to 59, as in all keys.
bool RecordTimeExists(std::string_view time);

}  // namespace zel
