#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// A record as it was accepted. Views into what its batch keeps alive. UTF-8.
struct AcceptedEvent {
    std::string_view key;
    std::string_view receiveKey;
    std::string_view record;
};

// Records that were accepted together, in the order of their receive-time keys.
struct AcceptedBatch {
    std::vector<AcceptedEvent> events;
    std::shared_ptr<const void> owner;  // of the texts, which nobody changes any more
    std::size_t bytes = 0;
};

// The latest batches, as many as a number of bytes holds. Not for two threads at once.
class FollowRing {
public:
    // `place`: what was accepted from there on will be put in.
    FollowRing(std::size_t mostBytes, std::string place)
        : mostBytes_(mostBytes), begin_(place), end_(std::move(place)) {}

    // One batch behind the other. A batch that is larger than the ring passes through it.
    void Put(std::shared_ptr<const AcceptedBatch> batch);
    // Behind the last row that was put in.
    const std::string& End() const noexcept { return end_; }
    // Whether all rows from that place on are there.
    bool Covers(std::string_view place) const { return place >= begin_; }
    // The batches that hold rows from there on, at most so many.
    std::vector<std::shared_ptr<const AcceptedBatch>> From(std::string_view place,
                                                           std::size_t most) const;

private:
    const std::size_t mostBytes_;
    std::size_t bytes_ = 0;
    std::string begin_, end_;
    std::deque<std::shared_ptr<const AcceptedBatch>> batches_;
};

}  // namespace zel
