#pragma once

#include <cstdint>

#include "common/eventobject.h"

namespace ZEL {

// One walk over rows, for as long as it runs: who makes one asks it ahead of each row whether to go
// on. It looks before each thousandth row alone, and there waits while the walk is paused. For the
// walk's thread; all others reach it through AbortAll.
class RunningWalk {
public:
    // `pauseEvent` may be null; a null `stopEvent` ends the walk at its first look.
    RunningWalk(HANDLE stopEvent, HANDLE pauseEvent);
    ~RunningWalk();
    RunningWalk(const RunningWalk&) = delete;
    RunningWalk& operator=(const RunningWalk&) = delete;

    // False when the system gave no event; there must be no walk then.
    bool IsReady() const noexcept { return isReady_; }
    // Counts the row. False when one of the events was set, or the query's watch says so.
    bool MayGoOn() noexcept {
        constexpr std::uint64_t rowsPerCheck = 1000;
        return ++rows_ % rowsPerCheck != 0 || Look();
    }

    // Makes the next look of each walk that runs now in this process end that walk, also where a
    // purge has taken its database away; later walks don't hear of it.
    static void AbortAll() noexcept;

private:
    struct UnderWay;
    bool Look() noexcept;

    const HANDLE stopEvent_, pauseEvent_;
    wm::EventObject abortEvent_;
    const bool isReady_;
    std::uint64_t rows_ = 0;
};

}  // namespace ZEL
