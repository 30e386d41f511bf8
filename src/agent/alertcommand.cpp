#include "agent/alertcommand.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

// The line stands in a file in memory that is the program's standard input: nobody has to feed a
// pipe, and a program that does not read costs nothing. Each program leads a group of its own, so
// that what it has begun can be ended with it. Of the service's descriptors it has none but the
// messages: whatever stays behind would go on listening at the service's socket in its place.

namespace zel {

namespace {

int LineFile(std::string_view line) {
    const int file = ::memfd_create("hit", MFD_CLOEXEC);
    const std::string text = std::string(line) + "\n";
    const bool isWritten =
        file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        ::lseek(file, 0, SEEK_SET) == 0;
    if (isWritten || file < 0)
        return file;
    ::close(file);
    return -1;
}

}  // namespace

AlertCommand::AlertCommand(const std::vector<std::string>& command, std::string_view line) {
    const int input = LineFile(line);
    if (input < 0) {
        beginError_ = errno;
        return;
    }
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& each : command)
        arguments.push_back(const_cast<char*>(each.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    ::posix_spawnattr_init(&attributes);
    sigset_t defaults;
    ::sigemptyset(&defaults);
    for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP})
        ::sigaddset(&defaults, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
    beginError_ =
        ::posix_spawn(&process_, arguments[0], &actions, &attributes, arguments.data(), environ);
    if (beginError_ != 0)
        process_ = 0;
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(input);
}

AlertCommand::AlertCommand(AlertCommand&& other) noexcept
    : process_(std::exchange(other.process_, 0)),
      status_(other.status_),
      beginError_(other.beginError_),
      isEnded_(other.isEnded_) {}

AlertCommand::~AlertCommand() {
    std::string ignored;
    Finish(&ignored);
}

bool AlertCommand::HasEnded(std::uint64_t milliseconds) {
    if (process_ == 0)
        return true;
    const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, process_, 0));
    pollfd wait{handle, POLLIN, 0};
    ::poll(&wait, 1, static_cast<int>(milliseconds));
    if (handle >= 0)
        ::close(handle);
    if (::waitpid(process_, &status_, WNOHANG) != process_)
        return false;
    process_ = 0;
    return true;
}

bool AlertCommand::Finish(std::string* problem) {
    if (process_ != 0) {
        isEnded_ = true;
        ::kill(-process_, SIGKILL);
        while (::waitpid(process_, &status_, 0) < 0 && errno == EINTR) {
        }
        process_ = 0;
    }
    if (beginError_ != 0)
        *problem = std::string("it can't be begun: ") + std::strerror(beginError_);
    else if (isEnded_)
        *problem = "it took too long and was ended (hunt.alert_time)";
    else if (WIFSIGNALED(status_))
        *problem = "it was ended by signal " + std::to_string(WTERMSIG(status_));
    else if (WEXITSTATUS(status_) != 0)
        *problem = "it ended with " + std::to_string(WEXITSTATUS(status_));
    return problem->empty();
}

}  // namespace zel
