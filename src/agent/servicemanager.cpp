#include "agent/servicemanager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace zel {

// A name that begins with @ is one of no file.
void NotifyManager(const std::string& text) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = path != nullptr ? std::strlen(path) : 0;
    if (length == 0 || length >= sizeof(address.sun_path))
        return;
    std::memcpy(address.sun_path, path, length);
    if (address.sun_path[0] == '@')
        address.sun_path[0] = '\0';
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0)
        return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    ::sendto(socket, text.data(), text.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address), size);
    ::close(socket);
}

std::uint64_t WatchdogPeriodMs() {
    const char* const period = std::getenv("WATCHDOG_USEC");
    return period != nullptr ? std::strtoull(period, nullptr, 10) / 1000 : 0;
}

}  // namespace zel
