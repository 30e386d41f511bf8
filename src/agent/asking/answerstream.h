#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace zel {

// Bytes on their way from a question to whoever asked: a bounded buffer between a thread that may
// wait and a server that must not. Who reads slowly makes the question wait; it costs a thread of
// the questions and never one of the server or of the writers. Any thread.
class AnswerStream {
public:
    // Holds up to `mostWaiting` bytes, or one larger piece. `longestStall`: how long nothing may be
    // read before the reader counts as gone.
    AnswerStream(std::size_t mostWaiting, std::chrono::seconds longestStall)
        : mostWaiting_(mostWaiting), longestStall_(longestStall) {}
    AnswerStream(const AnswerStream&) = delete;
    AnswerStream& operator=(const AnswerStream&) = delete;

    // The question's side.

    // Waits for room. False when nobody reads any more; from then on nothing is taken.
    bool Write(std::string_view bytes);
    // As Write, but waits for nothing: false when there is no room, or nobody reads any more.
    bool Offer(std::string_view bytes);
    // The last bytes, which wait for no room, and the end. `isRefusal`: nothing but these was ever
    // written, and they tell why there is no answer; `isLate`: because its time was over.
    void Finish(std::string_view bytes, bool isRefusal, bool isLate = false);
    // Nothing more is taken; what is there and the end still go to the reader. For any thread.
    void Break();
    // What Write has waited in all, up to now: the reader's time and not the question's.
    std::chrono::steady_clock::duration Waited() const;
    bool IsCancelled() const;
    bool HasStalled() const;

    // The reader's side.

    // `onReady` is called once, when there is something to take or the end has come: at once, or
    // later on the question's thread, where it must not wait. One at a time.
    void WhenReady(std::function<void()> onReady);
    // Moves what is there to `*bytes`. False at the end, behind which nothing comes.
    bool Take(std::string* bytes);
    bool IsRefusal() const;
    bool IsLate() const;
    std::chrono::seconds LongestStall() const noexcept { return longestStall_; }
    // While it is paused the reader is told of nothing but the end, so that the question waits at a
    // full buffer as for one who reads slowly. Any thread.
    void Pause(bool isPaused);
    // Nobody reads any more: what is there is dropped, and `onCancel` called, if it was set.
    void Cancel();

    // Set ahead of all others. `onTaken` is called when the reader has made room.
    std::function<void()> onCancel;
    std::function<void()> onTaken;

private:
    bool HasRoomLocked(std::size_t size) const {
        return bytes_.empty() || bytes_.size() + size <= mostWaiting_;
    }
    bool IsReadyLocked() const {
        return hasEnded_ || isCancelled_ || (!bytes_.empty() && !isPaused_);
    }
    void TellReady(std::unique_lock<std::mutex>& hold);

    const std::size_t mostWaiting_;
    const std::chrono::seconds longestStall_;
    mutable std::mutex mutex_;
    std::condition_variable room_;
    std::string bytes_;
    std::function<void()> onReady_;
    std::chrono::steady_clock::duration waited_{0};
    std::optional<std::chrono::steady_clock::time_point> waitsSince_;
    bool isPaused_ = false;
    bool hasEnded_ = false, isRefusal_ = false, isLate_ = false, isCancelled_ = false,
         hasStalled_ = false, isBroken_ = false;
};

}  // namespace zel
