#include "support/slowdisk.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

namespace ZEL::test {

namespace {

enum class Rule : int { none, block, fail, failReads };

std::atomic<Rule> rule{Rule::none};
std::mutex ruleMutex;
std::condition_variable ruleChanged;
std::string ruleSuffix;
int ruleError = 0, failuresLeft = 0, failures = 0;
int blockedWriters = 0;

bool NameEndsIn(int file, const std::string& suffix) {
    char link[32], name[4096];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", file);
    const ssize_t length = ::readlink(link, name, sizeof(name));
    return length > 0 && std::string_view(name, static_cast<std::size_t>(length)).ends_with(suffix);
}

// False, with errno set, when the operation is to fail.
bool MayProceed(int file, bool isRead = false) {
    if (rule.load(std::memory_order_acquire) == Rule::none)
        return true;
    std::unique_lock hold(ruleMutex);
    if (rule == Rule::none || (rule == Rule::failReads) != isRead || !NameEndsIn(file, ruleSuffix))
        return true;
    if (rule != Rule::block) {
        if (failuresLeft == 0)
            return true;
        --failuresLeft;
        ++failures;
        errno = ruleError;
        return false;
    }
    ++blockedWriters;
    ruleChanged.notify_all();
    ruleChanged.wait(hold, [] { return rule != Rule::block; });
    --blockedWriters;
    return true;
}

void SetRule(Rule newRule, std::string_view suffix, int error, int times = 0) {
    const std::lock_guard hold(ruleMutex);
    ruleSuffix = suffix;
    ruleError = error;
    failuresLeft = times;
    failures = 0;
    rule = newRule;
    ruleChanged.notify_all();
}

}  // namespace

void SlowDisk::Block(std::string_view suffix) {
    SetRule(Rule::block, suffix, 0);
}

void SlowDisk::AwaitBlocked() {
    std::unique_lock hold(ruleMutex);
    ruleChanged.wait(hold, [] { return blockedWriters > 0; });
}

void SlowDisk::Fail(std::string_view suffix, int error, int times) {
    SetRule(Rule::fail, suffix, error, times);
}

void SlowDisk::FailReads(std::string_view suffix, int error) {
    SetRule(Rule::failReads, suffix, error, 1 << 30);
}

int SlowDisk::Failures() const {
    const std::lock_guard hold(ruleMutex);
    return failures;
}

void SlowDisk::Unblock() {
    SetRule(Rule::none, {}, 0);
}

}  // namespace ZEL::test

extern "C" {

[[gnu::visibility("default")]] ssize_t read(int file, void* data, std::size_t size) {
    return ZEL::test::MayProceed(file, true) ? ::syscall(SYS_read, file, data, size) : -1;
}

[[gnu::visibility("default")]] ssize_t write(int file, const void* data, std::size_t size) {
    return ZEL::test::MayProceed(file) ? ::syscall(SYS_write, file, data, size) : -1;
}

[[gnu::visibility("default")]] int fdatasync(int file) {
    return ZEL::test::MayProceed(file) ? static_cast<int>(::syscall(SYS_fdatasync, file)) : -1;
}
}
