#include "zel/terminal/messages.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>

#include "zel/terminal/narrator.h"

// Signals, and how the program speaks. A handler may do little, so it keeps the first signal and
// writes a byte into a pipe that nobody reads: whoever waits polls that pipe beside what it waits
// for, and a wait that begins after the signal ends at once. That is what reading a flag before
// each wait could not do, since the signal may come between the two.

namespace zel {

namespace {

std::atomic<int> firstSignal{0};  // lock-free, so a handler may set it
static_assert(std::atomic<int>::is_always_lock_free);
int interruptPipe[2] = {-1, -1};
std::atomic<int> promptEnds{0};

// Any thread may be the one that is interrupted, also just ahead of a wait: the pipe reaches all.
void OnInterrupt(int signal) {
    if (promptEnds != 0)
        ::_exit(exitCode::interrupted);
    const int before = errno;
    int none = 0;
    firstSignal.compare_exchange_strong(none, signal);
    if (::write(interruptPipe[1], "", 1) < 0)
        errno = before;  // it is full of them
}

int hangupEvent = -1;

void OnHangup(int) {
    const int before = errno;
    const std::uint64_t one = 1;
    if (::write(hangupEvent, &one, sizeof(one)) < 0)
        errno = before;
}

}  // namespace

// Asked once: stderr does not change while the program runs.
bool TalksToTerminal() {
    static const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
    return isTerminal;
}

// In one call, so that lines of two threads don't mix.
void Say(const std::string& text) {
    ClearProgress();
    std::fprintf(stderr, "zel: %s\n", text.c_str());
}

void ShowProgress(const std::string& text) {
    if (TalksToTerminal())
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
}

void ClearProgress() {
    if (TalksToTerminal())
        std::fputs("\r\033[K", stderr);
}

bool WantsTable(const std::string& output) {
    return output == "table" || (output.empty() && ::isatty(STDOUT_FILENO) == 1);
}

// Without a pipe, waits end at the next thing that comes or at the call that is interrupted; all
// else works. Writing must not block in the handler, hence O_NONBLOCK.
void WatchInterrupts() {
    if (::pipe2(interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        interruptPipe[0] = interruptPipe[1] = -1;
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGHUP, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

int WatchHangups() {
    hangupEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = OnHangup;
    action.sa_flags = SA_RESTART;
    if (hangupEvent >= 0)
        ::sigaction(SIGHUP, &action, nullptr);
    return hangupEvent;
}

bool Interrupted() noexcept {
    return firstSignal != 0;
}

bool Terminated() noexcept {
    return firstSignal == SIGTERM;
}

int InterruptDescriptor() noexcept {
    return interruptPipe[0];
}

InterruptsEndAtOnce::InterruptsEndAtOnce() noexcept {
    ++promptEnds;
    if (Interrupted())  // just ahead of it
        ::_exit(exitCode::interrupted);
}

InterruptsEndAtOnce::~InterruptsEndAtOnce() {
    --promptEnds;
}

}  // namespace zel
