#include "zel/terminal/pager.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

// The pager gets a pipe in place of the terminal. It is started by the shell, as PAGER may hold
// arguments. Signals that this program has taken for itself are the pager's own again, and an
// interrupt reaches both: this program ends its answer, the pager stays until the person leaves it.

extern char** environ;

namespace zel {

namespace {

bool IsInPath(const std::string& program) {
    const char* const given = std::getenv("PATH");
    std::string_view left = given != nullptr ? given : "";
    while (!left.empty()) {
        const std::size_t colon = std::min(left.find(':'), left.size());
        const std::string file = std::string(left.substr(0, colon)) + "/" + program;
        if (::access(file.c_str(), X_OK) == 0)
            return true;
        left.remove_prefix(std::min(colon + 1, left.size()));
    }
    return false;
}

// Empty where there is none.
std::string Command() {
    const char* const given = std::getenv("PAGER");
    const std::string command = given != nullptr ? given : IsInPath("less") ? "less" : "";
    return command == "cat" ? "" : command;
}

// Ends by itself where all fits the screen, shows colours, leaves the screen as it is.
std::vector<char*> Environment() {
    static char less[] = "LESS=FRX";
    std::vector<char*> all;
    bool hasOptions = false;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        hasOptions = hasOptions || std::strncmp(*entry, "LESS=", 5) == 0;
        all.push_back(*entry);
    }
    if (!hasOptions)
        all.push_back(less);
    all.push_back(nullptr);
    return all;
}

// 0 when it can't be started.
pid_t Spawn(std::string command, int input) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    sigset_t own;
    sigemptyset(&own);
    for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP})
        sigaddset(&own, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &own);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    char shell[] = "sh", option[] = "-c";
    char* arguments[] = {shell, option, command.data(), nullptr};
    std::vector<char*> environment = Environment();
    pid_t process = 0;
    const int failed =
        ::posix_spawnp(&process, shell, &actions, &attributes, arguments, environment.data());
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    return failed == 0 ? process : 0;
}

}  // namespace

void Pager::Start() {
    const std::string command = Command();
    int ends[2];
    if (process_ != 0 || command.empty() || ::pipe2(ends, O_CLOEXEC) != 0)
        return;
    terminal_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (terminal_ >= 0)
        process_ = Spawn(command, ends[0]);
    if (process_ != 0)
        ::dup2(ends[1], STDOUT_FILENO);
    else if (terminal_ >= 0)
        ::close(terminal_);
    ::close(ends[0]);
    ::close(ends[1]);
}

// A shell ends with 126 or 127 where it can't run a command.
bool Pager::Finish() {
    if (process_ == 0)
        return true;
    ::dup2(terminal_, STDOUT_FILENO);
    ::close(terminal_);
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    return !WIFEXITED(status) || (WEXITSTATUS(status) != 126 && WEXITSTATUS(status) != 127);
}

}  // namespace zel
