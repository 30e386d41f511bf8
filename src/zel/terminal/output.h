#pragma once

#include <string>
#include <string_view>

namespace zel {

// Standard output for data. What can't be written is never dropped in silence: after the first
// failure nothing more is taken, and Finish tells why. A reader that went away (a closed pipe) is
// no failure. For one thread.
class Output {
public:
    Output() = default;
    ~Output() { Flush(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Both false when nothing more can be written. What was written may wait in a buffer of 64 KiB
    // until Flush, so true does not yet mean that the reader has it.
    bool Write(std::string_view text);
    bool Flush();
    bool Usable() const noexcept { return state_ == State::good; }

    // Writes what is left. The value for the program's end: `code`, unless the output failed, which
    // is told, or its reader went away. To be called last: what is written after it can fail
    // unseen.
    int Finish(int code);
    // Standard output is another one now: what broke the former is no news of this one.
    void Reopen() noexcept { state_ = State::good; }

private:
    // A reader that went away and a wait that an interrupt ended are `closed`: nobody wants the
    // rest.
    enum class State { good, closed, failed };
    static constexpr std::size_t bufferSize = 1U << 16;  // bytes

    static bool AwaitReader();
    void Break(int error);

    std::string buffer_;
    State state_ = State::good;
    int error_ = 0;  // an errno value
};

// The same value for a command that prints through the C library. For output that is small and need
// not stop early. Not to be mixed with Output in one command, since each has a buffer of its own
// and the order would be lost.
int FinishStdout(int code);

// Gives closed standard descriptors to /dev/null, in the wrong direction: a file that the store
// opens would otherwise take their place and receive what is printed. Using them still fails. The
// very first thing a program does, before any file is opened.
void OccupyStandardDescriptors();

}  // namespace zel
