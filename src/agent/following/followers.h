#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/asking/answerstream.h"
#include "agent/following/followring.h"
#include "agent/following/pastreader.h"
#include "zelstore/ieventstore.h"

namespace zel {

struct FollowLimits {
    std::uint64_t followers = 16;     // at once
    std::size_t buffer = 1U << 20;    // bytes that wait for one reader
    std::chrono::seconds stall{600};  // how long a reader may read nothing
};

// How what is followed is written, one after the other; each puts its bytes behind `*out`. Used by
// one thread at a time.
class FollowForm {
public:
    virtual ~FollowForm() = default;
    // Where one stands: first, and after a silence.
    virtual void Position(std::string_view position, std::string* out) = 0;
    virtual void Event(std::string_view position, std::string_view key, std::string_view record,
                       std::string* out) = 0;
    // What is missing here, at most so many events.
    virtual void Gap(std::string_view position, std::string_view reason, std::uint64_t events,
                     std::string* out) = 0;
    // Each 15 seconds in which nothing else came.
    virtual void Silence(std::string* out) = 0;
};

// What a reader asks for.
struct FollowRequest {
    std::string position;     // where to go on; empty or "now": with what comes from now on
    std::string document;     // an event_query; empty: all events
    std::int64_t limit = -1;  // the answer ends behind so many events; negative: it does not
    // Which of the document's events are wanted, by their texts; null: all.
    std::function<bool(std::string_view record)> fits = nullptr;
    std::shared_ptr<FollowForm> form = nullptr;  // null: lines, as told below
};

// Hands events on as they are accepted, each once and with its position, to any number of readers.
// Whoever comes back with the position of the last one that he has seen misses nothing. Two threads
// serve all of them, and are begun with the first. Any thread.
//
// Answers are lines:
//
//   {"position":"..."}                        first, and where one stands after a silence
//   {"position":"...","event":{...}}
//   {"position":"...","gap":{"reason":"...","events":1}}   what is missing here, at most so many
//   (an empty line each 15 seconds in which nothing else came)
class Followers {
public:
    // `place`: that of the first row that OnAccepted will bring. All outlive this.
    Followers(ZEL::IEventStore7& store, IFollowPast& past, const FollowLimits& limits,
              std::string place);
    ~Followers();
    Followers(const Followers&) = delete;
    Followers& operator=(const Followers&) = delete;

    // The answer. Null with words in `*problem` for what can't be asked, or with none when there
    // are too many followers, or they were stopped.
    std::shared_ptr<AnswerStream> Follow(const FollowRequest& request, std::string* problem);

    // Records are on the disk; in the order of their receive-time keys, one call after the other.
    // Never waits for a follower.
    void OnAccepted(std::shared_ptr<const AcceptedBatch> batch);
    // IFollowPast::Settled has moved.
    void OnSettled();
    // Ends all answers, and the threads.
    void Stop();

    struct Counts {
        std::uint64_t running = 0, refused = 0, events = 0, gaps = 0;
    };
    Counts Count() const;

private:
    struct Follower;
    // Who serves a follower: the thread of what comes, or that of what was.
    enum class Mode { present, past };

    void Serve(Mode mode);
    // The followers of a mode that may be served now. With the lock held.
    std::vector<std::shared_ptr<Follower>> TakeReadyLocked(Mode mode);
    // Each gives the mode in which the follower goes on.
    Mode ServePresent(Follower& follower);
    Mode ServePast(Follower& follower);
    void Wake(Follower& follower);
    void Send(Follower& follower);

    ZEL::IEventStore7& store_;
    IFollowPast& past_;
    const FollowLimits limits_;
    PastReader reader_;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    FollowRing ring_;
    std::list<std::shared_ptr<Follower>> followers_;
    std::thread presentThread_, pastThread_;
    std::uint64_t refused_ = 0, events_ = 0, gaps_ = 0;
    bool isStopping_ = false;
};

}  // namespace zel
