#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/linestream.h"
#include "agent/parts.h"

// Ways in that the service goes itself, beside those by which peers come.
namespace zel {

inline constexpr std::size_t readBytes = 256U << 10;  // at once
inline constexpr std::uint64_t partBytes = 1U << 20;  // of a stream, after which it is taken

// Brings parts of a stream into the spool, one after the other. For one thread.
class PartSink {
public:
    // `source` is what messages call it. `parts` outlives this.
    PartSink(AgentParts& parts, std::string source) : parts_(parts), source_(std::move(source)) {}

    // Only when nothing waits. The marks are kept with the part.
    void Put(StreamPart part, std::vector<SpoolMark> marks);
    // Waits until what was put is on the disk, and for room as long as requests are held for it.
    // False when there is none: it can be tried again.
    bool Commit();
    // What was put and never had room, in records.
    std::size_t Waiting() const noexcept { return part_ ? part_->delivery->items.size() : 0; }

private:
    void Account();

    AgentParts& parts_;
    const std::string source_;
    std::optional<StreamPart> part_;
};

// One of them. For one thread.
class WayIn {
public:
    virtual ~WayIn() = default;
    // Takes some of what there is. False when there is nothing for now.
    virtual bool Step() = 0;
    // Whether nothing will come any more.
    virtual bool HasEnded() const { return false; }
    // The service ends: what was read and can't be read again is taken.
    virtual void Finish() {}
};

// Lines of standard input.
std::unique_ptr<WayIn> MakeInputWay(AgentParts& parts, int descriptor);

// Goes all of them, on a thread of its own. While there is no room nothing is read.
class Ways {
public:
    Ways() = default;
    ~Ways() { Stop(); }
    Ways(const Ways&) = delete;
    Ways& operator=(const Ways&) = delete;

    // Ahead of Start.
    void Add(std::unique_ptr<WayIn> way) { ways_.push_back(std::move(way)); }
    void Start();
    // Nothing more is read, and what has to be taken is taken. That may wait for room, until the
    // admission stops.
    void BeginStop();
    // Until that is done, or so long.
    void Await(std::chrono::seconds longest);
    void Stop();
    // Whether one of them has come to its end.
    bool HasEnded() const noexcept { return hasEnded_; }

private:
    void Main();

    std::vector<std::unique_ptr<WayIn>> ways_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    bool isDone_ = false;
    std::atomic<bool> hasEnded_{false};
    std::thread thread_;
};

}  // namespace zel
