#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zel {

// An address of either kind as sixteen bytes; one of IPv4 as IPv6 writes it (::ffff:10.0.0.1), so
// that both texts of it are the same address. None for what is no address.
std::optional<std::array<std::uint8_t, 16>> ReadIpAddress(std::string_view text);

}  // namespace zel
