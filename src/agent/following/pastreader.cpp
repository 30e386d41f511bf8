#include "agent/following/pastreader.h"

#include <algorithm>
#include <new>
#include <utility>

#include "agent/following/followplace.h"
#include "common/boundary.h"
#include "common/jsontext.h"
#include "common/valuetext.h"
#include "zelstore/keys/receivekey.h"

// A step is one question to the store: the receive-time rows from a place on, at most so many, one
// at a time, so that each has its place. It goes no further than what is known to be on the disk: a
// row beyond that may stand there while one ahead of it does not yet.
//
// Nothing may be passed over. While a step runs nothing is purged, so what is missing between two
// rows was missing before, and the ledger of purges tells of it. A folder that can't be read ends
// the step; it is tried again from there, and passed over only when whoever reads says so. A record
// that stands in two folders, since it was given to the store twice, comes once: places only grow.

namespace zel {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

namespace {

// By the store's own join: what stands behind the last member that was accepted.
constexpr std::string_view joined = ",\"enriched_data\":null}";

std::string Question(const std::string& place, const std::string& settled, int most) {
    const WalkStart start = WalkStartOf(place);
    const auto end = ZEL::ParseReceiveKey(settled);
    return "{\"event_query\":{\"limit_result_count\":" + std::to_string(most) +
           ",\"events\":[{\"receive_time\":{\"value\":" + wm::JsonString(std::string(start.time)) +
           "},\"seq_num\":" + std::to_string(start.number) +
           ",\"end_time\":{\"value\":" + wm::JsonString(std::string(end->time)) + "}}]}}";
}

}  // namespace

class PastReader::Walk final : public ZEL::IQueryCallback,
                               public ZEL::IQueryBatches,
                               public ZEL::IQueryFailures {
public:
    Walk(ZEL::IEventStore7& store, std::string settled, bool passesOver, Step* step)
        : store_(store), settled_(std::move(settled)), passesOver_(passesOver), step_(*step) {}

    // On the stack of the step: its count is not looked at.
    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = iid == ZEL::iidQueryBatches ? static_cast<ZEL::IQueryBatches*>(this)
               : iid == ZEL::iidQueryFailures
                   ? static_cast<void*>(static_cast<ZEL::IQueryFailures*>(this))
                   : nullptr;
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    std::uint32_t MostResults() override { return 1; }

    // A refused row makes a failure of its own, which says nothing.
    void OnDatabaseFailure(ZEL::IStringValue* folder, std::uint32_t, HRESULT) override {
        if (!isRefusing_ && !passesOver_ && step_.unread.empty())
            step_.unread = wm::ToText(folder);
    }
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                           ZEL::IStringValue* resumeTime, std::int32_t resumeSequence) override {
        if (isFinal)
            return hr::ok;
        return ZEL::AtBoundary([&] {
            ++rows_;
            isRefusing_ = isRefusing_ || !step_.unread.empty() ||
                          !Take(*results->GetValue(0),
                                ZEL::MakeReceiveKey(wm::ToText(resumeTime),
                                                    static_cast<std::uint32_t>(resumeSequence)));
            return isRefusing_ ? hr::aborted : hr::ok;
        });
    }
    // Whether the store gave all that it has up to what is settled.
    bool SawAll() const { return !isRefusing_ && step_.unread.empty() && rows_ < most; }

    int most = 0;              // rows that the question asks for
    std::uint64_t purged = 0;  // ahead of the first row, not told yet
    const std::function<void(std::uint64_t purged, std::string_view place)>* onGap = nullptr;
    const std::function<bool(const Row& row)>* onRow = nullptr;

private:
    bool Take(ZEL::IStringValue& text, const std::string& receiveKey);

    ZEL::IEventStore7& store_;
    const std::string settled_;
    const bool passesOver_;
    Step& step_;
    int rows_ = 0;
    bool isRefusing_ = false;
    std::string converted_, record_;
};

// Rows that came before, or are not settled yet, are passed over: their turn is not here.
bool PastReader::Walk::Take(ZEL::IStringValue& text, const std::string& receiveKey) {
    if (receiveKey < step_.end || receiveKey > settled_)
        return true;
    if (purged > 0) {
        step_.end = PlaceAhead(receiveKey);
        (*onGap)(std::exchange(purged, 0), step_.end);
    }
    record_ = wm::Utf8Of(text, converted_).value_or("");
    if (record_.ends_with(joined))
        record_.replace(record_.size() - joined.size(), joined.size(), "}");
    ZEL::CountedPtr<ZEL::IStringValue> key;
    const auto whole = wm::ToValue(record_);
    if (!whole)
        throw std::bad_alloc();
    if (Failed(store_.MakeKey(whole.Get(), ZEL::keyKindEvent, key.Receive())))
        key.Reset();
    if (!(*onRow)({receiveKey, key.Get(), record_}))
        return false;
    step_.end = PlaceBehind(receiveKey);
    return true;
}

PastReader::PastReader(ZEL::IEventStore7& store, IFollowPast& past, int rowsOfStep)
    : store_(store), past_(past), rowsOfStep_(rowsOfStep) {
    if (!stop_.Create(wm::EventReset::manual))
        throw std::bad_alloc();
}

PastReader::Step PastReader::Read(
    const std::string& place, bool passesOver,
    const std::function<void(std::uint64_t purged, std::string_view place)>& onGap,
    const std::function<bool(const Row& row)>& onRow) {
    Step step;
    step.end = place;
    const std::lock_guard hold(past_.Purging());
    const std::string settled = past_.Settled();
    step.isWhole = settled < place;
    if (step.isWhole)
        return step;
    Walk walk(store_, settled, passesOver, &step);
    walk.most = rowsOfStep_;
    walk.purged = past_.PurgedFrom(place);
    walk.onGap = &onGap;
    walk.onRow = &onRow;
    const auto document = wm::ToValue(Question(place, settled, rowsOfStep_));
    const HRESULT result =
        document ? store_.Query(document.Get(), &walk, stop_.Handle()) : hr::outOfMemory;
    if (Failed(result) && step.unread.empty())
        step.unread = "the store";
    step.isWhole = Succeeded(result) && walk.SawAll();
    if (!step.isWhole)
        return step;
    step.end = PlaceBehind(settled);
    if (walk.purged > 0)
        onGap(walk.purged, step.end);
    return step;
}

}  // namespace zel
