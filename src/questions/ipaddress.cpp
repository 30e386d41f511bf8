#include "questions/ipaddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace zel {

std::optional<std::array<std::uint8_t, 16>> ReadIpAddress(std::string_view text) {
    char copy[INET6_ADDRSTRLEN];
    if (text.size() >= sizeof(copy) || text.find('\0') != text.npos)
        return std::nullopt;
    copy[text.copy(copy, text.size())] = '\0';
    std::array<std::uint8_t, 16> address{};
    if (text.find(':') != text.npos)
        return inet_pton(AF_INET6, copy, address.data()) == 1 ? std::optional(address)
                                                              : std::nullopt;
    address[10] = address[11] = 0xFF;
    return inet_pton(AF_INET, copy, address.data() + 12) == 1 ? std::optional(address)
                                                              : std::nullopt;
}

std::optional<IpNetwork> IpNetwork::Of(std::string_view text, std::string* problem,
                                       std::size_t* at) {
    const std::size_t slash = text.find('/');
    const auto address = ReadIpAddress(text.substr(0, slash));
    *at = 0;
    if (!address) {
        *problem = "a network such as 10.0.0.0/8 or fe80::/10 is expected";
        return std::nullopt;
    }
    const bool isIpv4 = text.substr(0, slash).find(':') == text.npos;
    const int most = isIpv4 ? 32 : 128;
    int bits = most;
    if (slash != text.npos) {
        const char* const end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data() + slash + 1, end, bits);
        if (parsed.ec != std::errc() || parsed.ptr != end || bits < 0 || bits > most) {
            *problem = "a number of bits from 0 to " + std::to_string(most) + " is expected";
            *at = slash + 1;
            return std::nullopt;
        }
    }
    return IpNetwork{*address, isIpv4 ? bits + 96 : bits};
}

bool IpNetwork::Holds(std::string_view text) const {
    const auto other = ReadIpAddress(text.substr(0, text.find('%')));
    if (!other)
        return false;
    const int bytes = bits / 8, rest = bits % 8;
    return std::equal(address.begin(), address.begin() + bytes, other->begin()) &&
           (rest == 0 || (address[static_cast<std::size_t>(bytes)] ^
                          (*other)[static_cast<std::size_t>(bytes)]) >>
                                 (8 - rest) ==
                             0);
}

}  // namespace zel
