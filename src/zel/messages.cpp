#include "messages.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>

namespace zel {

namespace {

std::atomic<bool> interrupted{false};  // lock-free, so a handler may set it
static_assert(std::atomic<bool>::is_always_lock_free);
int interruptPipe[2] = {-1, -1};

// Any thread may be the one that is interrupted, also just ahead of a wait: the pipe reaches all.
void OnInterrupt(int) {
    const int before = errno;
    interrupted = true;
    if (::write(interruptPipe[1], "", 1) < 0)
        errno = before;  // it is full of them
}

bool StderrIsTerminal() {
    static const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
    return isTerminal;
}

struct Meaning {
    std::uint32_t code;
    const char* text;
};

constexpr Meaning meanings[] = {
    {0x80004005, "failure"},
    {0x8000FFFF, "not understood, or a state that should not occur"},
    {0x80070057, "something required is missing or wrong"},
    {0x8007000E, "out of memory"},
    {0x80070015, "the store is not open"},
    {0x8007000D, "the data is not in the right form"},
    {0x80070004, "too many open files"},
    {0x80070020, "in use by another process"},
    {0x80070070, "the disk is full"},
    {0x80070490, "not found"},
    {0x80070570, "the files are corrupt"},
    {0x8007045D, "the device failed"},
    {0x80004004, "aborted"},
    {0x80004001, "not offered by this version"},
    {0x800705B6, "a time has the wrong length"},
};

}  // namespace

void Say(const std::string& text) {
    ClearProgress();
    std::fprintf(stderr, "zel: %s\n", text.c_str());
}

void ShowProgress(const std::string& text) {
    if (StderrIsTerminal())
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
}

void ClearProgress() {
    if (StderrIsTerminal())
        std::fputs("\r\033[K", stderr);
}

bool WantsTable(const std::string& output) {
    return output == "table" || (output.empty() && ::isatty(STDOUT_FILENO) == 1);
}

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

bool Interrupted() noexcept {
    return interrupted;
}

int InterruptDescriptor() noexcept {
    return interruptPipe[0];
}

std::string Describe(std::int32_t result) {
    const auto code = static_cast<std::uint32_t>(result);
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(code));
    for (const Meaning& meaning : meanings)
        if (meaning.code == code)
            return std::string(meaning.text) + " (" + text + ")";
    return text;
}

}  // namespace zel
