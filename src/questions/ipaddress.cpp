#include "questions/ipaddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

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

}  // namespace zel
