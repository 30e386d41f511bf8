#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace zel {

// The types of values in binary XML that their reader treats in a way of its own.
inline constexpr std::uint8_t binXmlText = 0x01;  // UTF-16
inline constexpr std::uint8_t binXmlFragment = 0x21;
inline constexpr std::uint8_t binXmlArray = 0x80;  // a flag: of values of the type beside it

// A value of another type as Windows writes it: numbers decimal or as 0x.., times with seven
// decimals, GUIDs in braces, identifiers of users as S-1-.., all else in hex digits. Empty for what
// has fewer bytes than its type needs.
std::string BinXmlValueText(std::uint8_t type, std::span<const std::uint8_t> bytes);

}  // namespace zel
