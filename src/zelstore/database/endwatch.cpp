#include "zelstore/database/endwatch.h"

#include <utility>

#include "common/hostservices.h"

// When a query ends.
//
// Two things end early, and are told apart: what is in hand, by a stop, and the query, by a cancel,
// an abort of all, or a stop that is half a second old. A stop event is auto-reset for the store's
// own queries, so that whoever sees it set has taken the setting: it is noted here, whether a look
// of this class saw it or the walk at its thousandth row. Seen between two walks it would be lost,
// and is kept for the next one.
//
// An abort is a number that only grows, so that a query that begins afterwards does not hear of it,
// and nobody has to be told that it was heard.
//
// A look costs more than the test of many rows; the counting between two looks costs next to
// nothing.

namespace ZEL {

namespace {

std::atomic<std::uint64_t> abortsSoFar{0};
thread_local EndWatch* innermost = nullptr;

}  // namespace

EndWatch::EndWatch(HANDLE stopEvent, const std::atomic<bool>* cancelled) noexcept
    : stopEvent_(stopEvent),
      cancelled_(cancelled),
      aborts_(abortsSoFar.load(std::memory_order_acquire)),
      outer_(innermost) {
    innermost = this;
}

EndWatch::~EndWatch() {
    innermost = outer_;
}

EndWatch* EndWatch::OfThread() noexcept {
    return innermost;
}

void EndWatch::AbortAll() noexcept {
    abortsSoFar.fetch_add(1, std::memory_order_acq_rel);
}

void EndWatch::NoteStop() noexcept {
    givesUp_ = true;
    if (!stoppedAtMs_)
        stoppedAtMs_ = wm::Clock().TickCount64();
}

bool EndWatch::Look() noexcept {
    stepsLeft_ = stepsPerLook;
    if (wm::WaitForAny(1, &stopEvent_, 0) == 0)
        NoteStop();
    givesUp_ = givesUp_ || IsOver();
    return givesUp_;
}

// Opening a database is work like rows: a store of many small databases must be stoppable too.
bool EndWatch::BeginWalk() noexcept {
    constexpr std::uint64_t stepsToOpen = 500'000;
    givesUp_ = false;
    pendingStop_ = Spend(stepsToOpen) || pendingStop_;
    givesUp_ = IsOver();
    leftOut_ = leftOut_ || givesUp_;
    return !givesUp_;
}

// A stop that was kept ends one walk, and is used up by that.
bool EndWatch::EndsWalk() noexcept {
    return std::exchange(pendingStop_, false) || IsOver();
}

bool EndWatch::IsOver() noexcept {
    over_ = over_ || abortsSoFar.load(std::memory_order_acquire) != aborts_ ||
            (cancelled_ != nullptr && cancelled_->load(std::memory_order_acquire)) ||
            (stoppedAtMs_ && wm::Clock().TickCount64() - *stoppedAtMs_ >= graceMs);
    return over_;
}

}  // namespace ZEL
