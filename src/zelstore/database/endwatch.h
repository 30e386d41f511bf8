#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "common/eventobject.h"

namespace ZEL {

// Says whether what a query does is to end. All that may take long on a query's thread counts its
// work here; when enough has come together, the stop event is looked at. So no row, no list of
// values and no document holds a query up, and an ordinary row pays a subtraction.
//
// A set stop event ends what is in hand: one walk. Those behind it are still made, for half a
// second by the clock of the host; then the query is over. A cancel, and an abort of all, end the
// query at the next look.
//
// Made on the query's thread, for that thread alone, where OfThread finds it while it lives.
class EndWatch {
public:
    // Steps are about a nanosecond each, so a look comes every few milliseconds.
    static constexpr std::int64_t stepsPerLook = 5'000'000;
    // How long a query may go on to visit databases behind a stop.
    static constexpr std::uint64_t graceMs = 500;

    // Takes a setting of an auto-reset `stopEvent` when it sees one. A handle that can't be waited
    // for never stops anything. `cancelled` may be null, and else must outlive the watch.
    explicit EndWatch(HANDLE stopEvent, const std::atomic<bool>* cancelled = nullptr) noexcept;
    ~EndWatch();
    EndWatch(const EndWatch&) = delete;
    EndWatch& operator=(const EndWatch&) = delete;

    // The innermost of this thread; null when it runs no query.
    static EndWatch* OfThread() noexcept;
    // Ends every query that runs at this moment. For any thread.
    static void AbortAll() noexcept;

    // Counts work, and looks when it is time. True when what is in hand is to be given up.
    bool Spend(std::uint64_t steps) noexcept {
        stepsLeft_ -= static_cast<std::int64_t>(steps);
        return stepsLeft_ > 0 ? givesUp_ : Look();
    }
    bool GivesUp() const noexcept { return givesUp_; }
    // Somebody else saw the stop event set.
    void NoteStop() noexcept;
    // The walk of a further database is begun, to which a former stop does not apply. False when
    // the query is over and the walk is to be left out.
    bool BeginWalk() noexcept;
    // Asked where a walk looks for stops: whether one was seen ahead of the walk, or the query is
    // over.
    bool EndsWalk() noexcept;
    // Whether anything was left out.
    bool HasLeftOut() const noexcept { return leftOut_; }

private:
    bool Look() noexcept;
    bool IsOver() noexcept;

    const HANDLE stopEvent_;
    const std::atomic<bool>* const cancelled_;
    // How many aborts there had been when the watch was made: later ones concern it.
    const std::uint64_t aborts_;
    // Of the query in whose callback this one was begun.
    EndWatch* const outer_;
    std::int64_t stepsLeft_ = stepsPerLook;
    bool givesUp_ = false;
    bool over_ = false;
    // A stop that was seen between two walks, for the next one to end by.
    bool pendingStop_ = false;
    bool leftOut_ = false;
    // When the first stop was seen; the grace is counted from there.
    std::optional<std::uint64_t> stoppedAtMs_;
};

// Thrown, and caught where a row or a document is worked on, when a watch says that it is to be
// given up.
struct GivenUp {};

// Counts work at a watch, which may be null. Throws GivenUp when what is in hand is to be given up.
inline void Spend(EndWatch* watch, std::uint64_t steps) {
    if (watch != nullptr && watch->Spend(steps))
        throw GivenUp();
}

// Counts work of this thread's query, if it runs one. True when what is in hand is to be given up.
inline bool SpendOfThread(std::uint64_t steps) noexcept {
    EndWatch* const watch = EndWatch::OfThread();
    return watch != nullptr && watch->Spend(steps);
}

}  // namespace ZEL
