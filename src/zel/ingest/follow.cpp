#include "zel/ingest/follow.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/jsontext.h"
#include "common/textbridge.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "zel/terminal/messages.h"
#include "zelstore/keys/receivekey.h"

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

bool PositionOfKey(const std::string& key, FollowPosition* position) {
    const auto place = ZEL::ParseReceiveKey(key);
    if (place)
        *position = {std::string(place->time), place->sequence};
    return place.has_value();
}

std::string KeyOfPosition(const FollowPosition& position) {
    return ZEL::MakeReceiveKey(position.time, position.sequence);
}

// Takes the batches of one run. The position moves with each batch that is out of the house, and
// stays once a batch was refused: later folders still tell, and would leave out what is behind it.
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
        follower_.works_ = follower_.SavePosition();
        return follower_.works_;
    }

    bool PrintAll(ZEL::IValueCollection& results) {
        for (std::size_t i = 0; i < results.Count(); ++i)
            follower_.output_.Write(wm::ToText(results.GetValue(i)) + "\n");
        if (follower_.output_.Flush())
            return true;
        if (!Interrupted())
            Say("events can't be printed any more");
        return false;
    }

    Follower& follower_;
    const std::uint64_t knownObstacles_;
    bool whole_ = true;
};

Follower::Follower(StoreSession& store, std::string positionFile, Output& output)
    : store_(store), failures_(store), positionFile_(std::move(positionFile)), output_(output) {}

Follower* Follower::Start(StoreSession& store, const std::string& positionFile, Output& output) {
    std::unique_ptr<Follower> fresh(new Follower(store, positionFile, output));
    if (!fresh->stop_.Create(true, false)) {
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

// The store does not start a job that runs already, so rows that come while a run is past them
// would wait for the rows behind them.
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

bool Follower::LoadPosition() {
    // This moment, in the form that keys have it.
    CountedPtr<ZEL::IStringValue> key;
    const auto ignored = wm::ToValue("-");
    const bool made =
        Succeeded(store_->MakeKey(ignored.Get(), ZEL::keyKindReceive, key.Receive())) &&
        PositionOfKey(wm::ToText(key.Get()), &lastKey_);
    if (!made || !wm::ToWide(positionFile_, widePositionFile_)) {
        Say("the position can't be kept in " + positionFile_);
        return false;
    }
    if (!wm::FileExists(widePositionFile_)) {
        position_ = lastKey_;
        return SavePosition();
    }
    std::string text;
    const HRESULT read = wm::ReadWholeFile(widePositionFile_, &text);
    const std::string line = text.substr(0, text.find('\n'));
    if (Failed(read) || !PositionOfKey(line, &position_)) {
        Say(positionFile_ +
            ": this is no position; without the file, following begins with what "
            "comes from now on");
        return false;
    }
    return true;
}

bool Follower::SavePosition() {
    const HRESULT result = wm::ReplaceFile(widePositionFile_, KeyOfPosition(position_) + "\n");
    if (Failed(result))
        Say(positionFile_ +
            ": the position can't be kept: " + Describe(static_cast<std::int32_t>(result)));
    return Succeeded(result);
}

std::string Follower::NextKey() {
    CountedPtr<ZEL::IStringValue> key;
    const auto ignored = wm::ToValue("-");
    FollowPosition next;
    const HRESULT made = store_->MakeKey(ignored.Get(), ZEL::keyKindReceive, key.Receive());
    if (Failed(made) || !PositionOfKey(wm::ToText(key.Get()), &next)) {
        Say("a receive-time key can't be made: " + Describe(static_cast<std::int32_t>(made)));
        return "";
    }
    const std::lock_guard lock(keysMutex_);
    if (!(lastKey_ < next))
        next = {lastKey_.time, lastKey_.sequence + 1};
    lastKey_ = next;
    hasGivenKeys_ = true;
    return KeyOfPosition(next);
}

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

// A row that was written while the job's last run was past it waits for the next run; here all
// rows are known, so it is asked for.
bool Follower::AwaitAll() {
    using Clock = std::chrono::steady_clock;
    constexpr auto pause = std::chrono::milliseconds(500);
    constexpr auto longestWait = std::chrono::seconds(30);  // the store writes each 10 s
    FollowPosition reached;
    auto end = Clock::now() + longestWait;
    while (!Interrupted()) {
        bool sawAll = true;
        {
            const std::lock_guard lock(mutex_);
            if (!DrainLocked())
                return false;
            if (!MayLackLocked())
                return true;
            if (reached < position_) {
                reached = position_;
                end = Clock::now() + longestWait;
            }
            sawAll = complete_;
        }
        if (Clock::now() >= end) {
            Say(std::string(sawAll ? "not all rows have reached the disk"
                                   : "not all rows can be read") +
                "; the next run goes on with them");
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return false;
}

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
