#include "output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "messages.h"

namespace zel {

bool Output::Write(std::string_view text) {
    if (!Usable())
        return false;
    buffer_ += text;
    return buffer_.size() < bufferSize || Flush();
}

bool Output::Flush() {
    std::string_view left = buffer_;
    while (Usable() && !left.empty()) {
        if (Interrupted()) {
            Break(EINTR);  // the reader may never take the rest
            break;
        }
        const ssize_t written = ::write(STDOUT_FILENO, left.data(), left.size());
        if (written >= 0) {
            left.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd ready{STDOUT_FILENO, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            Break(errno);
        }
    }
    buffer_.clear();
    return Usable();
}

void Output::Break(int error) {
    error_ = error;
    state_ = error == EPIPE || error == EINTR ? State::closed : State::failed;
}

int Output::Finish(int code) {
    Flush();
    if (state_ == State::failed) {
        Say(std::string("can't write: ") + std::strerror(error_));
        return exitCode::losses;
    }
    return state_ == State::closed && code != exitCode::interrupted ? exitCode::done : code;
}

void OccupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) != -1 || errno != EBADF)
            continue;
        // The lowest free descriptor is the one that was found closed.
        const int wrongWay = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (::open("/dev/null", descriptor == STDERR_FILENO ? O_WRONLY : wrongWay) < 0)
            return;
    }
}

}  // namespace zel
