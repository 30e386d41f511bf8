#include "agent/asking/answerstream.h"

#include <utility>

namespace zel {

using Clock = std::chrono::steady_clock;

// Called without the lock: the reader may come back at once.
void AnswerStream::TellReady(std::unique_lock<std::mutex>& hold) {
    const std::function<void()> onReady =
        IsReadyLocked() ? std::exchange(onReady_, nullptr) : nullptr;
    hold.unlock();
    if (onReady)
        onReady();
}

bool AnswerStream::Write(std::string_view bytes) {
    std::unique_lock hold(mutex_);
    const auto hasRoom = [&] { return isCancelled_ || isBroken_ || HasRoomLocked(bytes.size()); };
    if (!hasRoom() && !hasStalled_) {
        waitsSince_ = Clock::now();
        hasStalled_ = !room_.wait_for(hold, longestStall_, hasRoom);
        waited_ += Clock::now() - *waitsSince_;
        waitsSince_.reset();
    }
    if (isCancelled_ || hasStalled_ || isBroken_)
        return false;
    bytes_ += bytes;
    TellReady(hold);
    return true;
}

bool AnswerStream::Offer(std::string_view bytes) {
    std::unique_lock hold(mutex_);
    if (isCancelled_ || isBroken_ || !HasRoomLocked(bytes.size()))
        return false;
    bytes_ += bytes;
    TellReady(hold);
    return true;
}

void AnswerStream::Finish(std::string_view bytes, bool isRefusal, bool isLate) {
    std::unique_lock hold(mutex_);
    if (!isCancelled_)
        bytes_ += bytes;
    hasEnded_ = true;
    isRefusal_ = isRefusal;
    isLate_ = isLate;
    TellReady(hold);
}

void AnswerStream::Break() {
    const std::lock_guard hold(mutex_);
    isBroken_ = true;
    room_.notify_all();
}

Clock::duration AnswerStream::Waited() const {
    const std::lock_guard hold(mutex_);
    return waitsSince_ ? waited_ + (Clock::now() - *waitsSince_) : waited_;
}

bool AnswerStream::IsCancelled() const {
    const std::lock_guard hold(mutex_);
    return isCancelled_;
}

bool AnswerStream::HasStalled() const {
    const std::lock_guard hold(mutex_);
    return hasStalled_;
}

void AnswerStream::WhenReady(std::function<void()> onReady) {
    std::unique_lock hold(mutex_);
    onReady_ = std::move(onReady);
    TellReady(hold);
}

void AnswerStream::Pause(bool isPaused) {
    std::unique_lock hold(mutex_);
    isPaused_ = isPaused;
    TellReady(hold);
}

bool AnswerStream::Take(std::string* bytes) {
    bool goesOn = false;
    {
        const std::lock_guard hold(mutex_);
        bytes->clear();
        bytes->swap(bytes_);
        room_.notify_all();
        goesOn = !bytes->empty() || !(hasEnded_ || isCancelled_);
    }
    if (onTaken && !bytes->empty())
        onTaken();
    return goesOn;
}

bool AnswerStream::IsRefusal() const {
    const std::lock_guard hold(mutex_);
    return isRefusal_;
}

bool AnswerStream::IsLate() const {
    const std::lock_guard hold(mutex_);
    return isLate_;
}

void AnswerStream::Cancel() {
    std::function<void()> tell;
    {
        const std::lock_guard hold(mutex_);
        if (hasEnded_ || std::exchange(isCancelled_, true))
            return;
        bytes_.clear();
        onReady_ = nullptr;
        tell = onCancel;
        room_.notify_all();
    }
    if (tell)
        tell();
}

}  // namespace zel
