#include "zel/terminal/output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "zel/terminal/messages.h"

// Data leaves through a buffer of its own, not through the C library: what can't be written has to
// be known at once, with its cause, because the walk of a store goes on for as long as results are
// taken; and a stalled reader must not keep the program from ending.

namespace zel {

namespace {

bool IsFile(int descriptor) {
    struct stat info {};
    return ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

bool Output::Write(std::string_view text) {
    if (!Usable())
        return false;
    buffer_ += text;
    return buffer_.size() < bufferSize || Flush();
}

bool Output::Flush() {
    // No more than what a pipe that can take something takes without waiting. A file never waits.
    static const std::size_t mostAtOnce = IsFile(STDOUT_FILENO) ? bufferSize : PIPE_BUF;
    std::string_view left = buffer_;
    while (Usable() && !left.empty()) {
        if (!AwaitReader()) {
            Break(EINTR);
            break;
        }
        const ssize_t written =
            ::write(STDOUT_FILENO, left.data(), std::min(left.size(), mostAtOnce));
        if (written >= 0)
            left.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EAGAIN && errno != EINTR)
            Break(errno);
    }
    buffer_.clear();
    return Usable();
}

// Waits until something can be written. A write itself would keep this thread beyond an interrupt,
// which another thread may have heard. False when the reader stalls and the user has had enough.
bool Output::AwaitReader() {
    constexpr int patienceMs = 200;
    pollfd reader{STDOUT_FILENO, POLLOUT, 0};
    for (;;) {
        const int ready = ::poll(&reader, 1, patienceMs);
        if (ready > 0 || (ready < 0 && errno != EINTR))
            return true;
        if (Interrupted() && ready == 0)
            return false;
    }
}

// What caused it is kept and told at the end: in the midst of output a message would stand among
// the data on a terminal.
void Output::Break(int error) {
    error_ = error;
    state_ = error == EPIPE || error == EINTR ? State::closed : State::failed;
}

// A reader that went away, such as head, has had what it wanted; an interrupt is the user's doing
// and keeps its own value.
int Output::Finish(int code) {
    Flush();
    if (state_ == State::failed) {
        Say(std::string("can't write: ") + std::strerror(error_));
        return exitCode::losses;
    }
    return state_ == State::closed && code != exitCode::interrupted ? exitCode::done : code;
}

// What was printed may still be in the C library's buffer; only once that is empty is it known that
// all of it arrived.
int FinishStdout(int code) {
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return code;
    if (errno == EPIPE)
        return code;
    Say(std::string("can't write: ") + (errno != 0 ? std::strerror(errno) : "an earlier failure"));
    return exitCode::losses;
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
