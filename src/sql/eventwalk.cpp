#include "sql/eventwalk.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "common/boundary.h"
#include "common/eventobject.h"
#include "common/valuetext.h"
#include "records/seentexts.h"

// Two threads and a queue between them. The walk's thread copies each of the store's batches into
// one block of bytes and hands that over; blocks that were read go back to it. It waits where the
// reader lags behind, in the midst of the store's walk: that is open for reading, so it keeps
// nobody from anything.
//
// The end may come from either side. The store's is the return of its query. The reader's sets the
// store's stop event, which stays set, refuses what still comes, and joins the thread.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr std::size_t mostWaiting = 1U << 20;  // bytes
constexpr auto patience = std::chrono::milliseconds(20);

// Events one behind the other, and where each ends: its text, its key and its host.
struct Block {
    struct End {
        std::size_t text, key, host;
    };
    std::string bytes;
    std::vector<End> ends;
    void Add(std::string_view text, std::string_view key, std::string_view host) {
        End end{};
        end.text = bytes.append(text).size();
        end.key = bytes.append(key).size();
        end.host = bytes.append(host).size();
        ends.push_back(end);
    }
    void Clear() noexcept {
        bytes.clear();
        ends.clear();
    }
};

}  // namespace

class EventWalk::Runner final : public ZEL::IQueryCallback,
                                public ZEL::IQueryRows,
                                public IFleetCallback {
public:
    Runner(std::shared_ptr<SqlStore> store, Question question)
        : store_(std::move(store)),
          question_(std::move(question)),
          document_(wm::ToValue(question_.document)) {
        if (!document_ || !stop_.Create(wm::EventReset::manual))
            throw std::bad_alloc();
        thread_ = std::thread([this] { Run(); });
    }
    ~Runner() {
        if (ended_) {
            thread_.join();
            return;
        }
        store_->BeginStop();
        {
            const std::lock_guard<std::mutex> hold(lock_);
            stopped_ = true;
        }
        stop_.Set();
        room_.notify_one();
        thread_.join();
        store_->EndStop();
    }

    Step Next(Event* event) {
        if (next_ == block_.ends.size() && !TakeBlock())
            return ended_ ? Step::end : Step::notYet;
        const std::string_view bytes = block_.bytes;
        const std::size_t from = next_ == 0 ? 0 : block_.ends[next_ - 1].host;
        const Block::End& end = block_.ends[next_++];
        *event = {bytes.substr(from, end.text - from), bytes.substr(end.text, end.key - end.text),
                  bytes.substr(end.key, end.host - end.key)};
        return Step::event;
    }
    HRESULT Result() const noexcept { return ended_ ? result_ : hr::ok; }

    // The object is its owner's: references are not counted.
    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = nullptr;
        if (IsFleetUsed() && iid == ZEL::iidQueryRows)
            *out = static_cast<ZEL::IQueryRows*>(this);
        else if (iid == iidFleetCallback)
            *out = static_cast<IFleetCallback*>(this);
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                           ZEL::IStringValue*, std::int32_t) override {
        const HRESULT result = ZEL::AtBoundary([&] {
            if (isFinal)
                return HandOver();
            for (std::size_t i = 0; i < results->Count(); ++i)
                Take(*results->GetValue(i));
            return HandOver();
        });
        // Rows that are offered again count as seen, so the answer lacks them.
        if (Failed(result))
            walkResult_ = result;
        return result;
    }

    // Of a fleet, in which no event comes twice. Blocks of a size as batches make them.
    HRESULT OnQueryRow(const ZEL::QueryRow& row) override {
        constexpr std::size_t mostRows = 100;
        const HRESULT result = ZEL::AtBoundary([&] {
            filling_.Add(row.text, row.key, row.host);
            return filling_.ends.size() < mostRows ? hr::ok : HandOver();
        });
        if (Failed(result))
            walkResult_ = result;
        return result;
    }
    Order RowOrder() override { return question_.order; }
    std::string_view OnlyHost() override { return question_.host; }

private:
    void Run() noexcept {
        const HRESULT result = store_->Store().Query(document_.Get(), this, stop_.Handle());
        if (seen_.IsFull())
            store_->NoteRepeats();
        bool wasStopped = false;
        {
            const std::lock_guard<std::mutex> hold(lock_);
            wasStopped = stopped_;
        }
        if (!wasStopped)
            store_->NoteFailures();
        const std::lock_guard<std::mutex> hold(lock_);
        result_ = Failed(walkResult_) ? walkResult_ : result;
        done_ = true;
        filled_.notify_one();
    }

    void Take(ZEL::IStringValue& value) {
        std::string converted;
        const auto text = wm::Utf8Of(value, converted);
        if (text && seen_.Insert(DistinctPart(*text)))
            filling_.Add(*text, {}, {});
    }

    // On the walk's thread.
    HRESULT HandOver() {
        std::unique_lock<std::mutex> hold(lock_);
        room_.wait(hold, [this] { return stopped_ || waiting_ < mostWaiting; });
        if (stopped_)
            return hr::aborted;
        if (filling_.ends.empty())
            return hr::ok;
        waiting_ += filling_.bytes.size();
        blocks_.push_back(std::move(filling_));
        filling_ = std::exchange(spare_, {});
        filled_.notify_one();
        return hr::ok;
    }

    // On the reader's. False when none has come for a while, or no more will.
    bool TakeBlock() {
        block_.Clear();
        next_ = 0;
        std::unique_lock<std::mutex> hold(lock_);
        filled_.wait_for(hold, patience, [this] { return done_ || !blocks_.empty(); });
        if (blocks_.empty()) {
            ended_ = done_;
            return false;
        }
        if (spare_.bytes.capacity() < block_.bytes.capacity())
            spare_ = std::move(block_);
        block_ = std::move(blocks_.front());
        blocks_.pop_front();
        waiting_ -= block_.bytes.size();
        room_.notify_one();
        return true;
    }

    const std::shared_ptr<SqlStore> store_;
    const Question question_;
    const ZEL::CountedPtr<ZEL::IStringValue> document_;
    wm::EventObject stop_;

    // The walk's.
    SeenTexts seen_;
    Block filling_;
    HRESULT walkResult_ = hr::ok;
    // The reader's.
    Block block_;
    std::size_t next_ = 0;  // event of it
    bool ended_ = false;

    // Of both, under the lock.
    std::mutex lock_;
    std::condition_variable filled_, room_;
    std::deque<Block> blocks_;
    Block spare_;
    std::size_t waiting_ = 0;  // bytes in `blocks_`
    bool stopped_ = false, done_ = false;
    HRESULT result_ = hr::ok;

    std::thread thread_;  // the last: it uses the others
};

EventWalk::EventWalk(std::shared_ptr<SqlStore> store, Question question)
    : runner_(std::make_unique<Runner>(std::move(store), std::move(question))) {}

EventWalk::~EventWalk() = default;

EventWalk::Step EventWalk::Next(Event* event) {
    return runner_->Next(event);
}

HRESULT EventWalk::Result() const noexcept {
    return runner_->Result();
}

}  // namespace zel
