#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "records/mapping.h"

namespace zel {

enum class Product : std::uint8_t { unknown, windows, linuxes, macos };
// Of the name that rules and senders have for it, in any letter case; unknown for others.
Product ProductNamed(std::string_view name) noexcept;

// What an event is, as far as the meaning of names in rules depends on it. Two events of one kind
// have their fields in the same places.
struct EventKind {
    std::string format, channel, object, action;  // as the record has them; empty for none
    std::uint32_t number = 0;                     // of the event in its channel; 0: none

    Product product = Product::unknown;  // where format, channel or the sender tell it
    bool isWindows = false;              // of a channel of Windows, or of Sysmon for Linux
    bool isSysmon = false;
    const MappingTable* table = nullptr;  // that made it; null where that is not known
};
// Of the parts that a record has, with what follows from them. `told`: what the sender says of its
// system, where neither format nor channel tell it.
EventKind KindOf(std::string_view format, std::string_view channel, std::uint32_t number,
                 std::string_view object, std::string_view action, Product told = Product::unknown);

// Sysmon's channels: for Windows and for Linux.
inline constexpr std::string_view sysmonChannels[] = {"Microsoft-Windows-Sysmon/Operational",
                                                      "Linux-Sysmon/Operational"};

// Whether the row makes events of that number; a row without numbers does of any.
bool IsOfNumber(const MappingRow& row, std::uint32_t number);
// The row of Sysmon whose places stand for those of all records of the object and action: of the
// same deed, else of the same object. Null for objects that Sysmon has not.
const MappingRow* UsualRow(std::string_view object, std::string_view action);

}  // namespace zel
