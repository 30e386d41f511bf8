#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Rows of a fleet's tables, as the lines that are sent.
namespace zel::fleet {

// When a store got an event. Rows of one event differ in that alone, and the later one holds.
struct FleetReceipt {
    std::uint64_t milliseconds = 0;  // since 1970
    std::uint32_t number = 0;        // within it
};

// Appends the row of an event, with its line's end: the key's fields as conditions see them, the
// key and the text. False, with nothing appended, for a key or text that is not UTF-8.
bool AppendEventRow(std::string_view host, const FleetReceipt& receipt, std::string_view key,
                    std::string_view event, std::string* out);

// Appends text as a JSON string, with its quotes.
void AppendJsonText(std::string_view text, std::string* out);

}  // namespace zel::fleet
