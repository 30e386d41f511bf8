#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zel {

// An address of either kind as sixteen bytes; one of IPv4 as IPv6 writes it (::ffff:10.0.0.1), so
// that both texts of it are the same address. None for what is no address.
std::optional<std::array<std::uint8_t, 16>> ReadIpAddress(std::string_view text);

// The addresses that begin with the same bits.
struct IpNetwork {
    std::array<std::uint8_t, 16> address{};
    int bits = 0;  // of the sixteen bytes

    // Of "10.0.0.0/8" or "fe80::/10", where what is behind the bits does not matter; an address
    // alone is a network of one. None for anything else, with what is wrong and the byte where.
    static std::optional<IpNetwork> Of(std::string_view text, std::string* problem,
                                       std::size_t* at);
    // Whether the text is an address of it; of "fe80::1%eth0" the interface is passed over.
    bool Holds(std::string_view text) const;
};

}  // namespace zel
