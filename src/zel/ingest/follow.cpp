#include "zel/ingest/follow.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "common/hostservices.h"
#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "zel/terminal/messages.h"
#include "zelstore/keys/receivekey.h"

// Following: each event is printed once it is on the disk, in the order of receipt, and once.
//
// What is printed is read back from the store. Beside each event stands a row whose key is the time
// of receipt; keys only ever grow (NextKey), so "what is new" is "what stands behind the last row
// that was printed", and that place, the position, is all that has to be kept between runs and
// between processes.
//
// In live mode the store starts its job when such rows were written, and the job is to drain: ask
// for the rows behind the position, and for each batch of the answer print it, flush it, and only
// then move the position and write it to its file. A process that is killed between printing and
// noting prints that batch again; nothing is ever left out. The store does not start a job that
// runs already, so a row may be written right behind a run that has passed its place; the job
// therefore also runs every ten seconds, and at the end of the input AwaitAll drains until all rows
// that got a key here are out.
//
// The danger is to pass rows over. A query skips a folder that it can't read and goes on with the
// next: the rows behind would be printed, the position would move past those that were skipped, and
// they would never come. So before each batch the store's table of errors is looked at
// (StoreFailures). A folder that another process holds, or one for which no descriptor was left, is
// an obstacle that passes: the batch is refused, the position stays, and the next run tries again.
// Damage stays, so waiting for it would hold everything up for good: it is told and passed over.
//
// A refused batch ends the walk of its folder, but the query goes on with later folders, whose rows
// lie behind the refused ones; hence one refusal refuses all that follows in the same run.

namespace zel {

using ZEL::CountedPtr;
using ZEL::HRESULT;
namespace hr = ZEL::hr;

namespace {

// Rows come in the order of their keys and the query begins behind the position, so what it gives
// is new.
std::string NewRowsQuery(const FollowPosition& position) {
    return "{\"event_query\":{\"events\":[{\"receive_time\":{\"value\":" +
           wm::JsonString(position.time) +
           "},\"seq_num\":" + std::to_string(position.sequence + 1ULL) + "}]}}";
}

}  // namespace

// Takes the batches of one run: prints each, then moves the position behind it. Lives for one run,
// on its thread, with the follower's lock held.
class Follower::Printer final : public ZEL::IQueryCallback {
public:
    explicit Printer(Follower& follower)
        : follower_(follower), knownObstacles_(follower.failures_.Obstacles()) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID&, void** out) override {
        *out = nullptr;
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }

    // Called again for the next database after a failure, with the same events and more.
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                           ZEL::IStringValue* resumeTime, std::int32_t resumeSequence) override {
        if (isFinal)
            return hr::ok;
        const FollowPosition reached{wm::ToText(resumeTime),
                                     static_cast<std::uint32_t>(resumeSequence)};
        whole_ = whole_ && Take(*results, reached);
        if (!whole_)
            follower_.failures_.SetRefusing(true);
        return whole_ ? hr::ok : hr::fail;
    }

    // Whether all rows were seen, once the query has ended.
    bool SawAll() const { return whole_ && !MetObstacle(); }

private:
    // Whether a folder could not be read, so that rows in front of the batch may be missing.
    bool MetObstacle() const {
        follower_.failures_.Look();
        return follower_.failures_.Obstacles() != knownObstacles_;
    }

    bool Take(ZEL::IValueCollection& results, const FollowPosition& reached) {
        if (follower_.closing_ || Interrupted() || reached.time.size() != ZEL::keyTimeLength ||
            MetObstacle())
            return false;
        follower_.works_ = PrintAll(results);
        if (!follower_.works_)
            return false;
        follower_.printed_ += results.Count();
        follower_.position_ = std::max(follower_.position_, reached);
        follower_.works_ = follower_.positionFile_.Save(follower_.position_);
        return follower_.works_;
    }

    bool PrintAll(ZEL::IValueCollection& results) {
        for (std::size_t i = 0; i < results.Count(); ++i)
            follower_.output_.Write(wm::ToText(results.GetValue(i)) + "\n");
        if (follower_.output_.Flush())
            return true;
        follower_.cutShort_ = Interrupted();
        if (!follower_.cutShort_)
            Say("events can't be printed any more");
        return false;
    }

    Follower& follower_;
    const std::uint64_t knownObstacles_;
    bool whole_ = true;
};

Follower::Follower(StoreSession& store, const std::string& positionFile, Output& output)
    : store_(store), failures_(store), positionFile_(positionFile), output_(output) {}

// Nobody owns a follower that was begun: the job may call it as long as the process lives.
Follower* Follower::Start(StoreSession& store, const std::string& positionFile, Output& output) {
    std::unique_ptr<Follower> fresh(new Follower(store, positionFile, output));
    if (!fresh->stop_.Create(wm::EventReset::manual)) {
        Say("following can't start: " + Describe(static_cast<std::int32_t>(hr::outOfMemory)));
        return nullptr;
    }
    if (!fresh->LoadPosition())
        return nullptr;
    Follower* const follower = fresh.release();  // the job keeps it
    // Rows that an earlier process left behind come first; new keys stand behind them.
    if (!follower->Register() || !follower->Drain()) {
        follower->Close();
        return nullptr;
    }
    return follower;
}

// The job's function gets the follower as its context, which is why it must never go.
bool Follower::Register() {
    CountedPtr<ZEL::IJobRegistry> registry;
    const auto run = [](void* context, ZEL::HANDLE) {
        return static_cast<Follower*>(context)->Drain() ? hr::ok : hr::fail;
    };
    if (Failed(wm::OpenJobManager(manager_.Receive())) ||
        Failed(manager_->QueryInterface(ZEL::iidJobRegistry, registry.ReceiveVoid())) ||
        Failed(registry->RegisterJob(ZEL::storeJobId, nullptr, run, this))) {
        Say("the store's job can't be had; -v tells why");
        return false;
    }
    return Schedule();
}

// For rows that are written right behind a run that has passed their place.
bool Follower::Schedule() {
    namespace jobTrigger = ZEL::jobTrigger;
    constexpr std::uint32_t seconds = 10;
    CountedPtr<ZEL::IJob> job;
    const bool scheduled =
        Succeeded(manager_->GetJob(ZEL::storeJobId, job.Receive())) &&
        Succeeded(job->SetTriggerValue(0, jobTrigger::kind, {{jobTrigger::periodic, 0, 0}})) &&
        Succeeded(job->SetTriggerValue(0, jobTrigger::period, {{seconds, 0, 0}})) &&
        Succeeded(job->SetTriggerValue(0, jobTrigger::delay, {{seconds, 0, 0}})) &&
        Succeeded(job->Save());
    if (!scheduled)
        Say("the store's job can't be scheduled");
    return scheduled;
}

// Without a file the position is this moment, in the form that keys have it.
bool Follower::LoadPosition() {
    return MakeFreshKey(&lastKey_) && positionFile_.Load(lastKey_, &position_);
}

bool Follower::MakeFreshKey(FollowPosition* fresh) {
    CountedPtr<ZEL::IStringValue> key;
    const auto ignored = wm::ToValue("-");
    const HRESULT made = store_->MakeKey(ignored.Get(), ZEL::keyKindReceive, key.Receive());
    const bool isMade = Succeeded(made) && PositionOfKey(wm::ToText(key.Get()), fresh);
    if (!isMade)
        Say("a receive-time key can't be made: " + Describe(static_cast<std::int32_t>(made)));
    return isMade;
}

// The key is made ahead of the lock, and settled within it: of two threads whose keys come out of
// order the later one gets the next number.
std::string Follower::NextKey() {
    FollowPosition next;
    if (!MakeFreshKey(&next))
        return "";
    const std::lock_guard lock(keysMutex_);
    if (!(lastKey_ < next))
        next = {lastKey_.time, lastKey_.sequence + 1};
    lastKey_ = next;
    hasGivenKeys_ = true;
    return KeyOfPosition(next);
}

// Runs of the job, and whoever calls this, take turns.
bool Follower::Drain() {
    const std::lock_guard lock(mutex_);
    return DrainLocked();
}

bool Follower::DrainLocked() {
    // To read opens the folders, which makes files anew in each: not without need.
    if (closed_ || !works_ || !MayLackLocked())
        return works_;
    failures_.Look();
    const auto document = wm::ToValue(NewRowsQuery(position_));
    Printer printer(*this);
    const HRESULT result = store_->Query(document.Get(), &printer, stop_.Handle());
    complete_ = printer.SawAll() && Succeeded(result);
    failures_.SetRefusing(false);
    if (Failed(result) && result != lastResult_)
        Say("new rows can't be read: " + Describe(static_cast<std::int32_t>(result)));
    lastResult_ = result;
    const std::lock_guard lock(keysMutex_);
    lastKey_ = std::max(lastKey_, position_);
    return works_;
}

// Whether there may be rows that were not printed.
bool Follower::MayLackLocked() {
    const std::lock_guard lock(keysMutex_);
    return !complete_ || (hasGivenKeys_ && position_ < lastKey_);
}

// Between two steps the lock is free, so that the job may do the same work.
bool Follower::AwaitAll() {
    using Clock = std::chrono::steady_clock;
    constexpr auto pause = std::chrono::milliseconds(500);
    constexpr auto longestWait = std::chrono::seconds(30);  // the store writes each 10 s
    FollowPosition reached;
    bool sawAll = true;
    for (auto end = Clock::now() + longestWait; !Interrupted();) {
        const Progress progress = AwaitStep(&reached, &sawAll);
        if (progress == Progress::done || progress == Progress::broken)
            return progress == Progress::done;
        if (progress == Progress::some)
            end = Clock::now() + longestWait;
        if (Clock::now() >= end) {
            Say(std::string(sawAll ? "not all rows have reached the disk"
                                   : "not all rows can be read") +
                "; the next run goes on with them");
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    const std::lock_guard lock(mutex_);
    return works_ || cutShort_;
}

// One drain, and how far it has come since the position `*reached`.
Follower::Progress Follower::AwaitStep(FollowPosition* reached, bool* sawAll) {
    const std::lock_guard lock(mutex_);
    if (!DrainLocked())
        return cutShort_ ? Progress::none : Progress::broken;
    if (!MayLackLocked())
        return Progress::done;
    *sawAll = complete_;
    if (!(*reached < position_))
        return Progress::none;
    *reached = position_;
    return Progress::some;
}

// What is told to end comes ahead of the lock: a run that holds it would else go on to its own end.
void Follower::Close() {
    closing_ = true;
    stop_.Set();
    const std::lock_guard lock(mutex_);
    if (!closed_)
        failures_.Settle();
    closed_ = true;
}

std::uint64_t Follower::Printed() {
    const std::lock_guard lock(mutex_);
    return printed_;
}

}  // namespace zel
