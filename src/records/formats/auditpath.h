#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zel {

// Whether the first argument of a call says that its path starts in the current folder (AT_FDCWD).
bool IsCurrentFolder(std::string_view argument) noexcept;

// `path` as seen from `folder`, without "." and "..", by the text alone: links are not followed.
std::string AbsolutePath(std::string_view folder, std::string_view path);

// What the bytes of a SOCKADDR line say.
struct SocketAddress {
    std::string_view family;  // inet, inet6 or local
    std::string address;      // of inet and inet6
    std::string port;
    std::string path;      // of local; an abstract name begins with @
    bool isWhole = false;  // the bytes hold nothing else
};

// `hex` as the log has it, from a machine that counts bytes as most do, lowest first. None for
// other families, and for fewer bytes than the family needs.
std::optional<SocketAddress> ReadSocketAddress(std::string_view hex);

}  // namespace zel
