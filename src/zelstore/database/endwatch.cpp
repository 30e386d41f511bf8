#include "zelstore/database/endwatch.h"

#include <utility>

#include "common/hostservices.h"

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

bool EndWatch::BeginWalk() noexcept {
    constexpr std::uint64_t stepsToOpen = 500'000;
    givesUp_ = false;
    pendingStop_ = Spend(stepsToOpen) || pendingStop_;
    givesUp_ = IsOver();
    leftOut_ = leftOut_ || givesUp_;
    return !givesUp_;
}

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
