#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zel {

// The columns of an event: one list for tables, CSV, SQL and exports, so that a name means the same
// wherever it is written. One row is one event. docs/events.md tells people of them.

enum class ColumnType : std::uint8_t {
    text,
    number,  // a whole number, not negative
    time,    // UTC, 2026-11-12T10:00:00.000Z
    json,
};

// What a column is taken from.
enum class ColumnFrom : std::uint8_t {
    // The key has it, so the text need not be read. A key can't hold every value: where the field
    // is missing from the key the text may still have it.
    key,
    text,
    // Neither: it comes beside the event, and only whoever brings the event knows it.
    beside,
};

struct Column {
    std::string_view name;
    ColumnType type;
    ColumnFrom from;
    std::string_view unit;  // empty for most
    // The key's field of that name; empty where the key has none.
    std::string_view keyField;
    // Where it stands in the text: dotted names of members, "a|b" for the first that is there. Of
    // an array the first value counts, or for a text that the key has the first in byte order,
    // which is the one in the key. "a+b": both, with a blank between. Empty: the whole text.
    std::string_view place;
    std::string_view meaning;  // for people
};

// All of them, in the order in which they are shown.
std::span<const Column> Columns();
// Null when there is none of that name. Names are exact.
const Column* FindColumn(std::string_view name);

}  // namespace zel
