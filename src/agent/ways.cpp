#include "agent/ways.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <map>

// What the service reads by itself is read piece by piece, and the next piece once the one before
// is on the disk: that is all the back-pressure there has to be. A pipe fills and its writer waits;
// a file waits by itself.

namespace zel {

namespace {

constexpr auto look = std::chrono::milliseconds(200);  // whether there is more

// What was read of a pipe can't be read again: it is taken ahead of an end of the service, and lost
// when there is no room then.
class InputWay final : public WayIn {
public:
    InputWay(AgentParts& parts, int descriptor)
        : parts_(parts),
          descriptor_(descriptor),
          stream_(parts.store, parts.config),
          sink_(parts, "standard input") {}

    bool Step() override {
        if (!sink_.Commit())
            return false;
        std::string bytes(readBytes, '\0');
        while (!hasEnded_ && stream_.Unsettled() < partBytes && ReadSome(&bytes)) {
        }
        const bool isFull = stream_.Unsettled() >= partBytes;
        TakePart();
        return isFull;
    }

    bool HasEnded() const override { return hasEnded_ && sink_.Waiting() == 0; }

    void Finish() override {
        if (!hasEnded_)
            stream_.End();
        if (sink_.Commit()) {
            TakePart();
            sink_.Commit();
        }
        if (sink_.Waiting() > 0)
            parts_.log.Say(std::to_string(sink_.Waiting()) +
                           " event(s) of standard input had no room and are lost");
    }

private:
    // False when there is nothing for now.
    bool ReadSome(std::string* bytes) {
        pollfd wait{descriptor_, POLLIN, 0};
        if (::poll(&wait, 1, 0) <= 0)
            return false;
        const ssize_t got = ::read(descriptor_, bytes->data(), bytes->size());
        if (got < 0 && (errno == EINTR || errno == EAGAIN))
            return false;
        if (got < 0)
            parts_.log.Say(std::string("standard input can't be read: ") + std::strerror(errno));
        hasEnded_ = got <= 0;
        if (hasEnded_)
            stream_.End();
        else
            stream_.Feed(std::string_view(*bytes).substr(0, static_cast<std::size_t>(got)));
        return !hasEnded_;
    }

    void TakePart() {
        sink_.Put(stream_.TakePart(), {});
        sink_.Commit();
    }

    AgentParts& parts_;
    const int descriptor_;
    LineStream stream_;
    PartSink sink_;
    bool hasEnded_ = false;
};

}  // namespace

void PartSink::Put(StreamPart part, std::vector<SpoolMark> marks) {
    part.delivery->marks = std::move(marks);
    part.delivery->source = intakeSource::files;
    part_ = std::move(part);
}

bool PartSink::Commit() {
    if (!part_)
        return true;
    if (!part_->delivery->items.empty() || !part_->delivery->marks.empty()) {
        std::promise<Verdict> promise;
        std::future<Verdict> verdict = promise.get_future();
        parts_.admission.Submit(part_->delivery,
                                [&promise](Verdict told) { promise.set_value(told); });
        if (verdict.get() == Verdict::noRoom)
            return false;
    }
    Account();
    part_.reset();
    return true;
}

// Nobody reads an answer here, so what is refused is told in the log, a line for each reason.
void PartSink::Account() {
    std::map<std::string_view, std::pair<std::uint64_t, std::uint64_t>> reasons;  // how many, where
    for (const auto& [line, problem] : part_->problems) {
        parts_.log.CountRejected(intakeSource::files, problem.kind);
        const auto place = reasons.try_emplace(problem.kind, 0, line).first;
        ++place->second.first;
    }
    for (const auto& [kind, told] : reasons)
        parts_.log.SaySeldom(source_ + ": " + std::to_string(told.first) +
                             " line(s) rejected, the first is line " + std::to_string(told.second) +
                             ": " + std::string(kind));
    for (const SpoolItem& item : part_->delivery->items)
        parts_.log.duplicates += item.isDuplicate ? 1 : 0;
}

std::unique_ptr<WayIn> MakeInputWay(AgentParts& parts, int descriptor) {
    return std::make_unique<InputWay>(parts, descriptor);
}

void Ways::Start() {
    if (!ways_.empty())
        thread_ = std::thread([this] { Main(); });
}

void Ways::BeginStop() {
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
}

void Ways::Await(std::chrono::seconds longest) {
    std::unique_lock hold(mutex_);
    if (thread_.joinable())
        changed_.wait_for(hold, longest, [&] { return isDone_; });
}

void Ways::Stop() {
    BeginStop();
    if (thread_.joinable())
        thread_.join();
}

void Ways::Main() {
    for (;;) {
        bool hasMore = false;
        for (const auto& way : ways_)
            hasMore = way->Step() || hasMore;
        hasEnded_ = std::any_of(ways_.begin(), ways_.end(),
                                [](const auto& way) { return way->HasEnded(); });
        std::unique_lock hold(mutex_);
        if (!hasMore)
            changed_.wait_for(hold, look, [&] { return stopping_; });
        if (stopping_)
            break;
    }
    for (const auto& way : ways_)
        way->Finish();
    const std::lock_guard hold(mutex_);
    isDone_ = true;
    changed_.notify_all();
}

}  // namespace zel
