#pragma once

#include <chrono>
#include <cstdint>

namespace zel {

// The line that tells, while files are read, how far that is; only on a terminal. For one thread.
class IngestProgress {
public:
    // Of the file in hand: its bytes so far and in all (0 where nobody knows). `events` are those
    // of the whole run. Cheap enough for each few events: the line changes a few times a second.
    void Show(std::uint64_t bytes, std::uint64_t bytesInAll, std::uint64_t events);

private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_;
};

}  // namespace zel
