#include "records/formats/auditpath.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "records/formats/auditline.h"

namespace zel {

namespace {

// Families by their numbers on Linux.
constexpr unsigned local = 1, inet = 2, inet6 = 10;
constexpr std::size_t inetBytes = 8, inet6Bytes = 24;

unsigned Byte(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

bool IsZero(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == '\0'; });
}

std::string AddressText(int family, std::string_view bytes) {
    char text[INET6_ADDRSTRLEN] = {};
    return inet_ntop(family, bytes.data(), text, sizeof text) == nullptr ? "" : text;
}

std::string PortText(std::string_view bytes) {
    return std::to_string(Byte(bytes, 2) * 256 + Byte(bytes, 3));
}

// Behind the name's end stands what was in the caller's memory.
SocketAddress LocalAddress(std::string_view name) {
    SocketAddress result{"local", {}, {}, {}, true};
    const bool isAbstract = name.starts_with('\0');
    if (isAbstract)
        name.remove_prefix(1);
    name = name.substr(0, name.find('\0'));
    if (!name.empty())
        result.path = (isAbstract ? "@" : "") + AuditBytesToText(name, ' ');
    return result;
}

}  // namespace

bool IsCurrentFolder(std::string_view argument) noexcept {
    return argument == "ffffff9c" || argument == "ffffffffffffff9c";
}

std::string AbsolutePath(std::string_view folder, std::string_view path) {
    std::vector<std::string_view> parts;
    for (std::string_view rest : {folder, path}) {
        while (!rest.empty()) {
            const std::size_t end = std::min(rest.find('/'), rest.size());
            const std::string_view part = rest.substr(0, end);
            if (part == ".." && !parts.empty())
                parts.pop_back();
            else if (!part.empty() && part != "." && part != "..")
                parts.push_back(part);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    std::string result;
    for (const std::string_view part : parts)
        result.append("/").append(part);
    return result.empty() || path.ends_with('/') ? result + "/" : result;
}

std::optional<SocketAddress> ReadSocketAddress(std::string_view hex) {
    const auto decoded = AuditHexToBytes(hex);
    if (!decoded || decoded->size() < 3)
        return std::nullopt;
    const std::string_view bytes = *decoded;
    const unsigned family = Byte(bytes, 0) + Byte(bytes, 1) * 256;
    if (family == local)
        return LocalAddress(bytes.substr(2));
    if (family == inet && bytes.size() >= inetBytes)
        return SocketAddress{"inet",
                             AddressText(AF_INET, bytes.substr(4, 4)),
                             PortText(bytes),
                             {},
                             IsZero(bytes.substr(inetBytes))};
    if (family == inet6 && bytes.size() >= inet6Bytes)
        return SocketAddress{"inet6",
                             AddressText(AF_INET6, bytes.substr(8, 16)),
                             PortText(bytes),
                             {},
                             IsZero(bytes.substr(4, 4)) && IsZero(bytes.substr(inet6Bytes))};
    return std::nullopt;
}

}  // namespace zel
