#include "agent/servicemanager.h"

#include <fcntl.h>
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

// By number they begin behind the standard streams. The variables name one process, which has to
// look whether it is that one: they are inherited further than the descriptors are meant.
bool TakeSocket(int* descriptor, std::string* path, std::string* problem) {
    constexpr int first = 3;
    *descriptor = -1;
    const char* const process = std::getenv("LISTEN_PID");
    const char* const count = std::getenv("LISTEN_FDS");
    const bool isMeant =
        process != nullptr && count != nullptr && std::strtoll(process, nullptr, 10) == ::getpid();
    const bool isOne = isMeant && std::strcmp(count, "1") == 0;
    for (const char* const name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        ::unsetenv(name);
    if (!isMeant)
        return true;
    const auto option = [](int name) {
        int value = -1;
        socklen_t size = sizeof(value);
        return ::getsockopt(first, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
    };
    if (!isOne || option(SO_DOMAIN) != AF_UNIX || option(SO_TYPE) != SOCK_STREAM ||
        option(SO_ACCEPTCONN) != 1) {
        *problem = "the service manager has to hand over one listening Unix stream socket";
        return false;
    }
    sockaddr_un address{};
    socklen_t size = sizeof(address) - 1;
    ::getsockname(first, reinterpret_cast<sockaddr*>(&address), &size);
    *path = address.sun_path;
    ::fcntl(first, F_SETFD, FD_CLOEXEC);
    *descriptor = first;
    return true;
}

}  // namespace zel
