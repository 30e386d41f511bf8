#include "agent/admission.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "common/valuetext.h"
#include "zelstore/keys/receivekey.h"

// Group commit. One thread writes: what comes while it waits for the disk goes with the next
// commit, so the more there is to do the fewer syncs are made for it, and a single request waits
// for no more than two. Without room requests wait here rather than being refused at once: most
// senders do worse with a refusal than with a late answer.
//
// Receive-time keys are made here because here is the order in which records are accepted. They
// grow, whatever the clock does: who reads on behind the last row that he has seen must not miss
// one. They stand in the spool, so a record that is taken out of it twice has the same rows.

namespace zel {

namespace {

constexpr auto retryPause = std::chrono::milliseconds(200);

}  // namespace

Admission::Admission(Spool& spool, ZEL::IEventStore7& store, AgentLog& log, std::uint64_t mostBytes,
                     std::chrono::seconds hold, std::uint64_t mostHeld,
                     std::function<void(const Taken&)> onTaken)
    : spool_(spool),
      store_(store),
      log_(log),
      mostBytes_(mostBytes),
      mostHeld_(mostHeld),
      hold_(hold),
      onTaken_(std::move(onTaken)) {}

void Admission::Prepare() {
    // Behind all that was accepted before this process, whatever the clock says now.
    const std::string accepted = spool_.Accepted();
    if (const auto place = ZEL::ParseReceiveKey(accepted)) {
        lastTime_ = place->time;
        lastSequence_ = place->sequence;
    }
    spool_.BeginBehind(NextReceiveKey());
}

void Admission::Start() {
    const std::lock_guard hold(mutex_);
    stopping_ = false;
    thread_ = std::thread([this] { Main(); });
}

void Admission::Stop() {
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void Admission::Submit(std::shared_ptr<Delivery> delivery, Done done) {
    {
        const std::lock_guard hold(mutex_);
        if (!stopping_) {
            waiters_.push_back({std::move(delivery), std::move(done), Clock::now() + hold_.load()});
            changed_.notify_all();
            return;
        }
    }
    done(Verdict::noRoom);
}

void Admission::SetDiskRoom(bool hasRoom) {
    hasDiskRoom_ = hasRoom;
    changed_.notify_all();
}

bool Admission::HasRoom() const {
    return hasDiskRoom_ && works_ && spool_.Account().waitingBytes < mostBytes_;
}

std::uint64_t Admission::Waiting() const {
    const std::lock_guard hold(mutex_);
    return waiters_.size();
}

Admission::Waiters Admission::TakeExpiredLocked() {
    Waiters expired;
    const Clock::time_point now = Clock::now();
    while (!waiters_.empty() && (stopping_ || waiters_.front().until <= now)) {
        expired.push_back(std::move(waiters_.front()));
        waiters_.pop_front();
    }
    TakeCrowdLocked(&expired);
    return expired;
}

// No user may fill all places where requests wait for room; those that came last go.
void Admission::TakeCrowdLocked(Waiters* taken) {
    std::map<std::uint32_t, std::uint64_t> held;
    Waiters kept;
    for (Waiter& waiter : waiters_) {
        const auto& sender = waiter.delivery->sender;
        const bool isOneTooMany = sender && ++held[*sender] > mostHeld_;
        (isOneTooMany ? *taken : kept).push_back(std::move(waiter));
    }
    waiters_.swap(kept);
}

void Admission::Main() {
    std::unique_lock hold(mutex_);
    for (;;) {
        const auto hasWork = [&] { return stopping_ || !waiters_.empty(); };
        // Senders who ask for health before they send again have to be let in some time.
        if (!works_ && !changed_.wait_for(hold, retryPause, hasWork))
            works_ = true;
        changed_.wait(hold, hasWork);
        const bool mayTry =
            !stopping_ && hasDiskRoom_ && spool_.Account().waitingBytes < mostBytes_;
        Waiters inHand = mayTry ? std::exchange(waiters_, {}) : TakeExpiredLocked();
        if (inHand.empty()) {
            if (stopping_)
                return;
            changed_.wait_for(hold, retryPause);
            continue;
        }
        hold.unlock();
        works_ = !mayTry || Commit(inHand);
        if (works_)
            for (Waiter& waiter : inHand)
                waiter.done(mayTry ? Verdict::taken : Verdict::noRoom);
        hold.lock();
        if (works_)
            continue;
        // They keep their places and their times.
        std::move(inHand.rbegin(), inHand.rend(), std::front_inserter(waiters_));
        Waiters expired = TakeExpiredLocked();
        hold.unlock();
        for (Waiter& waiter : expired)
            waiter.done(Verdict::noRoom);
        hold.lock();
        changed_.wait_for(hold, retryPause);
    }
}

bool Admission::Commit(const Waiters& waiters) {
    std::vector<Delivery*> deliveries;
    Taken taken;
    for (const Waiter& waiter : waiters) {
        deliveries.push_back(waiter.delivery.get());
        taken.push_back(waiter.delivery);
    }
    std::string problem;
    const bool isTaken = spool_.Append(
        deliveries, [this] { return NextReceiveKey(); }, &problem);
    if (isTaken)
        onTaken_(taken);
    else
        log_.SaySeldom(problem);
    return isTaken;
}

// The store is asked for the time, so that the form is that of all its keys.
std::string Admission::NextReceiveKey() {
    ZEL::CountedPtr<ZEL::IStringValue> fresh;
    const auto ignored = wm::ToValue("-");
    ZEL::IgnoreResult(store_.MakeKey(ignored.Get(), ZEL::keyKindReceive, fresh.Receive()),
                      "without a key the last one is counted on");
    const std::string text = wm::ToText(fresh.Get());
    const auto place = ZEL::ParseReceiveKey(text);
    const bool isLater = place && std::pair(place->time, place->sequence) >
                                      std::pair(std::string_view(lastTime_), lastSequence_);
    if (isLater)
        lastTime_ = place->time;
    lastSequence_ = isLater ? place->sequence : lastSequence_ + 1;
    return ZEL::MakeReceiveKey(lastTime_, lastSequence_);
}

}  // namespace zel
