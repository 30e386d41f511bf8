#include "agent/following/followers.h"

#include <algorithm>
#include <utility>

#include "agent/following/followplace.h"
#include "common/countedptr.h"
#include "common/valuetext.h"

// Following has two sources. What was accepted lately stands in a ring in memory; from there one
// thread serves all who keep up. Who does not, or comes with a position of former days, is served
// by a second thread from the store, until he has reached what the ring holds. A place in the order
// of acceptance is all that is known of a follower, so he may change from one to the other at any
// time:
//
//   ahead of what is settled   in the store, and on the disk
//   behind that                in the spool, thus in the store soon; till then he waits
//   from the ring's begin on   in memory
//
// Neither thread ever waits for a reader. Each follower has a bounded buffer; where that is full he
// is left alone until his reader has taken of it, and what comes meanwhile passes through the ring.

namespace zel {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t ringBytes = 4U << 20;
constexpr std::size_t pieceBytes = 64U << 10;  // that are written at once
constexpr std::size_t pastBytes = 1U << 20;    // the same of a step in the store
constexpr std::size_t batchesAtOnce = 16;
constexpr auto heartbeat = std::chrono::seconds(15);
constexpr auto look = std::chrono::seconds(1);
constexpr int mostTries = 5;  // of a folder that can't be read, one a second

// Line ends stand between the tokens of JSON only, so a blank in their place changes nothing.
void PutRecord(std::string_view record, std::string* out) {
    const std::size_t begin = out->size();
    out->append(record);
    const auto from = out->begin() + static_cast<std::ptrdiff_t>(begin);
    std::replace(from, out->end(), '\n', ' ');
    std::replace(from, out->end(), '\r', ' ');
}

class FollowLines final : public FollowForm {
public:
    void Position(std::string_view position, std::string* out) override {
        Begin(position, out);
        out->append("}\n");
    }
    void Event(std::string_view position, std::string_view, std::string_view record,
               std::string* out) override {
        Begin(position, out);
        out->append(",\"event\":");
        PutRecord(record, out);
        out->append("}\n");
    }
    void Gap(std::string_view position, std::string_view reason, std::uint64_t events,
             std::string* out) override {
        Begin(position, out);
        out->append(",\"gap\":{\"reason\":\"").append(reason).append("\",\"events\":");
        out->append(std::to_string(events)).append("}}\n");
    }
    void Silence(std::string* out) override { out->append("\n"); }

private:
    static void Begin(std::string_view position, std::string* out) {
        out->append("{\"position\":\"").append(position).append("\"");
    }
};

}  // namespace

// Of the thread that serves it, but for what is guarded by the lock of all.
struct Followers::Follower {
    Follower(const FollowLimits& limits, const FollowRequest& request)
        : stream(std::make_shared<AnswerStream>(limits.buffer, limits.stall)),
          form(request.form ? request.form : std::make_shared<FollowLines>()),
          fits(request.fits),
          left(request.limit) {}

    const std::shared_ptr<AnswerStream> stream;
    ZEL::CountedPtr<ZEL::IRowFilter> filter;  // null: all events
    const std::shared_ptr<FollowForm> form;
    const std::function<bool(std::string_view)> fits;
    std::int64_t left;  // events that are wanted; negative: all
    std::string place;
    std::string told;  // the place that the reader knows
    std::string out;   // written, and not taken by the stream yet
    int tries = 0;     // in vain, of a step in the store
    bool isAtEnd = false;
    Clock::time_point lastSent = Clock::now();
    Clock::time_point notBefore = Clock::now();
    std::uint64_t events = 0, gaps = 0;  // that were not added to the sums yet

    // Guarded.
    Mode mode = Mode::present;
    bool isAwake = true;

    // False when no more fits.
    bool Take(std::string_view receiveKey, ZEL::IStringValue* key, std::string_view record);
    void PutGap(std::string_view at, std::string_view reason, std::uint64_t count);
    bool HasEnough() const { return left == 0; }
};

void Followers::Follower::PutGap(std::string_view at, std::string_view reason,
                                 std::uint64_t count) {
    form->Gap(PositionOf(at), reason, count, &out);
    told = at;
    ++gaps;
}

bool Followers::Follower::Take(std::string_view receiveKey, ZEL::IStringValue* key,
                               std::string_view record) {
    if (HasEnough() || out.size() >= pastBytes)
        return false;
    place.assign(receiveKey).append(1, '0');
    bool passes = key != nullptr && !filter;
    const bool isTested = key != nullptr && (!filter || Succeeded(filter->Passes(key, &passes)));
    if (!isTested)
        PutGap(place, "not tested", 1);
    if (!passes || (fits && !fits(record)))
        return true;
    std::string converted;
    form->Event(PositionOf(place), wm::Utf8Of(*key, converted).value_or(""), record, &out);
    told = place;
    ++events;
    left -= left > 0 ? 1 : 0;
    return true;
}

Followers::Followers(ZEL::IEventStore7& store, IFollowPast& past, const FollowLimits& limits,
                     std::string place)
    : store_(store),
      past_(past),
      limits_(limits),
      reader_(store, past),
      ring_(ringBytes, std::move(place)) {}

Followers::~Followers() {
    Stop();
}

std::shared_ptr<AnswerStream> Followers::Follow(const FollowRequest& request,
                                                std::string* problem) {
    const auto follower = std::make_shared<Follower>(limits_, request);
    const bool isNow = request.position.empty() || request.position == "now";
    if (!isNow) {
        const auto place = PlaceOf(request.position);
        if (!place) {
            *problem = "position is no position, none like 2026-11-12T10:00:00.000Z, and not now";
            return nullptr;
        }
        follower->place = *place;
    }
    if (!request.document.empty()) {
        ZEL::CountedPtr<ZEL::IRowFilterMaker> maker;
        const auto document = wm::ToValue(request.document);
        if (!document ||
            Failed(store_.QueryInterface(ZEL::iidRowFilterMaker, maker.ReceiveVoid())) ||
            Failed(maker->MakeRowFilter(document.Get(), follower->filter.Receive()))) {
            *problem = "the document is no event_query of events by their own times";
            return nullptr;
        }
    }
    const auto wake = [this, weak = std::weak_ptr<Follower>(follower)] {
        if (const auto woken = weak.lock())
            Wake(*woken);
    };
    follower->stream->onTaken = wake;
    follower->stream->onCancel = wake;
    const std::lock_guard hold(mutex_);
    if (isStopping_ || followers_.size() >= limits_.followers) {
        ++refused_;
        return nullptr;
    }
    if (isNow)
        follower->place = ring_.End();
    follower->form->Position(PositionOf(follower->place), &follower->out);
    follower->told = follower->place;
    followers_.push_back(follower);
    if (!presentThread_.joinable()) {
        presentThread_ = std::thread([this] { Serve(Mode::present); });
        pastThread_ = std::thread([this] { Serve(Mode::past); });
    }
    wake_.notify_all();
    return follower->stream;
}

void Followers::Wake(Follower& follower) {
    const std::lock_guard hold(mutex_);
    follower.isAwake = true;
    wake_.notify_all();
}

void Followers::OnAccepted(std::shared_ptr<const AcceptedBatch> batch) {
    const std::lock_guard hold(mutex_);
    ring_.Put(std::move(batch));
    bool hasOne = false;
    for (const auto& follower : followers_)
        if (follower->mode == Mode::present)
            hasOne = follower->isAwake = true;
    if (hasOne)
        wake_.notify_all();
}

void Followers::OnSettled() {
    const std::lock_guard hold(mutex_);
    bool hasOne = false;
    for (const auto& follower : followers_)
        if (follower->mode == Mode::past)
            hasOne = follower->isAwake = true;
    if (hasOne)
        wake_.notify_all();
}

std::vector<std::shared_ptr<Followers::Follower>> Followers::TakeReadyLocked(Mode mode) {
    std::vector<std::shared_ptr<Follower>> ready;
    const auto now = Clock::now();
    for (const auto& follower : followers_) {
        if (follower->mode != mode)
            continue;  // all but what is guarded belongs to another thread
        const bool isSilent = follower->out.empty() && now - follower->lastSent >= heartbeat;
        if (!(follower->isAwake && now >= follower->notBefore) && !isSilent)
            continue;
        follower->isAwake = false;
        ready.push_back(follower);
    }
    return ready;
}

void Followers::Serve(Mode mode) {
    std::unique_lock hold(mutex_);
    while (!isStopping_) {
        const auto ready = TakeReadyLocked(mode);
        // Without followers nobody looks at the time.
        if (ready.empty() && followers_.empty())
            wake_.wait(hold);
        else if (ready.empty())
            wake_.wait_for(hold, look);
        for (const auto& follower : ready) {
            hold.unlock();
            const Mode next =
                mode == Mode::present ? ServePresent(*follower) : ServePast(*follower);
            hold.lock();
            events_ += std::exchange(follower->events, 0);
            gaps_ += std::exchange(follower->gaps, 0);
            if (follower->isAtEnd)
                followers_.remove(follower);
            if (next == mode)
                continue;
            follower->mode = next;
            follower->isAwake = true;
            wake_.notify_all();
        }
    }
}

// What is written goes out as a whole or waits; nothing more is written until it has gone.
void Followers::Send(Follower& follower) {
    const auto now = Clock::now();
    follower.isAtEnd = follower.stream->IsCancelled();
    if (follower.isAtEnd)
        return;
    if (follower.out.empty() && now - follower.lastSent >= heartbeat) {
        if (follower.told != follower.place) {
            follower.form->Position(PositionOf(follower.place), &follower.out);
            follower.told = follower.place;
        }
        follower.form->Silence(&follower.out);
    }
    if (follower.out.empty() || !follower.stream->Offer(follower.out))
        return;
    follower.out.clear();
    follower.lastSent = now;
    if (follower.HasEnough()) {
        follower.stream->Finish("", false);
        follower.isAtEnd = true;
    }
}

Followers::Mode Followers::ServePresent(Follower& follower) {
    Send(follower);
    if (follower.isAtEnd || !follower.out.empty())
        return Mode::present;
    std::vector<std::shared_ptr<const AcceptedBatch>> batches;
    {
        const std::lock_guard hold(mutex_);
        if (!ring_.Covers(follower.place))
            return Mode::past;
        batches = ring_.From(follower.place, batchesAtOnce);
        follower.isAwake = follower.isAwake || !batches.empty();
    }
    const auto takesAll = [&follower](const AcceptedBatch& batch) {
        for (const AcceptedEvent& event : batch.events) {
            if (event.receiveKey < follower.place)
                continue;
            const auto key = wm::ToValue(event.key);
            if (follower.out.size() >= pieceBytes ||
                !follower.Take(event.receiveKey, key.Get(), event.record))
                return false;
        }
        return true;
    };
    for (const auto& batch : batches)
        if (!takesAll(*batch))
            break;
    Send(follower);
    return Mode::present;
}

Followers::Mode Followers::ServePast(Follower& follower) {
    Send(follower);
    if (follower.isAtEnd || !follower.out.empty())
        return Mode::past;
    {
        const std::lock_guard hold(mutex_);
        if (ring_.Covers(follower.place))
            return Mode::present;
    }
    const std::string before = follower.place;
    const bool passesOver = follower.tries >= mostTries;
    const PastReader::Step step = reader_.Read(
        before, passesOver,
        [&](std::uint64_t purged, std::string_view at) { follower.PutGap(at, "purged", purged); },
        [&](const PastReader::Row& row) {
            return follower.Take(row.receiveKey, row.key, row.record);
        });
    follower.place = step.end;
    if (passesOver)
        follower.PutGap(step.end, "not read", 0);
    const bool hasMoved = follower.place != before;
    follower.tries = step.unread.empty() || hasMoved ? 0 : follower.tries + 1;
    if (!hasMoved)
        follower.notBefore = Clock::now() + look;
    Send(follower);
    const std::lock_guard hold(mutex_);
    const bool goesOn = !step.unread.empty() || (hasMoved && follower.out.empty());
    follower.isAwake = follower.isAwake || goesOn;
    return Mode::past;
}

void Followers::Stop() {
    std::list<std::shared_ptr<Follower>> followers;
    {
        const std::lock_guard hold(mutex_);
        isStopping_ = true;
        wake_.notify_all();
    }
    reader_.End();
    if (presentThread_.joinable()) {
        presentThread_.join();
        pastThread_.join();
    }
    {
        const std::lock_guard hold(mutex_);
        followers.swap(followers_);
    }
    for (const auto& follower : followers)
        follower->stream->Finish("", false);
}

Followers::Counts Followers::Count() const {
    const std::lock_guard hold(mutex_);
    return {followers_.size(), refused_, events_, gaps_};
}

}  // namespace zel
