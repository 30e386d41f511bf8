#include "agent/asking/questions.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <utility>

#include "agent/asking/answerwriter.h"
#include "common/boundary.h"
#include "common/eventobject.h"
#include "common/hostservices.h"
#include "common/valuetext.h"
#include "connection/agentrequest.h"

// A question is worked on by one thread from its begin to its end, in the store's own call. Results
// go through a bounded buffer to whoever sends them on; where that is full the thread waits, in the
// midst of the store's walk, which holds no lock then. Threads are begun as questions come, up to
// the limit, and stay.
//
// Three things end a question early: its reader goes away, its time is over, or all are stopped.
// Each sets the question's stop event, which stays set: the store ends the walk in hand, and the
// query half a second later. A question that waits for room is woken by its stream.
//
// The store's reports come on the thread of the question that they concern, those on folders that
// were opened ahead of it apart, so that each question knows its own.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;
using Clock = std::chrono::steady_clock;

}  // namespace

class Questions::Run final : public ZEL::IQueryCallback,
                             public ZEL::IQueryFailures,
                             public ZEL::IQueryRows,
                             public QuestionWork {
public:
    Run(AskedQuestion question, const QuestionLimits& limits)
        : stream(std::make_shared<AnswerStream>(limits.buffer, limits.stall)),
          question_(std::move(question)),
          limits_(limits),
          writer_(MakeAnswerWriter(question_)) {
        if (!stop_.Create(wm::EventReset::manual))
            throw std::bad_alloc();
    }

    // Ahead of the answer: from here on its time counts.
    void Begin() { begin_ = Clock::now(); }
    void Answer(ZEL::IEventStore7& store) noexcept;
    void End() noexcept {
        isEnded_ = true;
        stop_.Set();
    }
    // Looked at from time to time by another thread.
    void EndIfOverTime() {
        if (Clock::now() - begin_ - stream->Waited() <= limits_.time)
            return;
        isOverTime_ = true;
        End();
    }
    void OnReport(const wm::ErrorReport& report) {
        if (report.Label() == wm::reportLabel::damagedData)
            ++damaged_;
        if (report.Label() != wm::reportLabel::lostRow)
            return;
        if (untested_++ == 0 && !report.Details().empty())
            why_ = report.Details().front().second;
    }

    // On the stack of the query, more or less: its count is not looked at.
    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = nullptr;
        if (iid == ZEL::iidQueryFailures)
            *out = static_cast<ZEL::IQueryFailures*>(this);
        else if (iid == ZEL::iidQueryRows && onRow_ != nullptr)
            *out = static_cast<ZEL::IQueryRows*>(this);
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool complete,
                           ZEL::IStringValue* resumeTime, std::int32_t resumeSequence) override {
        if (isFinal) {
            isComplete_ = isComplete_ && complete;
            return hr::ok;
        }
        return ZEL::AtBoundary([&] { return TakeRows(*results, resumeTime, resumeSequence); });
    }
    void OnDatabaseFailure(ZEL::IStringValue* folder, std::uint32_t operation,
                           HRESULT result) override {
        if (onRow_ != nullptr)
            failures_.insert(FailureJson(wm::ToText(folder), operation, result));
        else if (!hasEnough_)
            writer_->Failure(wm::ToText(folder), operation, result, &ready_);
    }

    // A refused row would count as a folder that can't be read.
    HRESULT OnQueryRow(const ZEL::QueryRow& row) override {
        if (IsOver())
            return hr::nothingToDo;
        return ZEL::AtBoundary([&] { return (*onRow_)(row); });
    }

    HRESULT Walk(const std::string& document, const OnRow& onRow) override;
    bool Write(std::string_view bytes) override {
        hasWritten_ = true;
        const bool isTaken = stream->Write(bytes);
        if (!isTaken)
            End();
        return isTaken;
    }
    void Refuse(std::string words) override { refusal_ = std::move(words); }
    bool IsOver() const override { return isEnded_; }
    std::string NotRead() const override {
        std::string list = "[";
        for (const std::string& failure : failures_)
            list.append(list.size() > 1 ? "," : "").append(failure);
        return list + "]";
    }

    const std::shared_ptr<AnswerStream> stream;
    static thread_local Run* ofThread;

private:
    HRESULT TakeRows(ZEL::IValueCollection& rows, ZEL::IStringValue* resumeTime,
                     std::int32_t resumeSequence);
    void PutReports();
    std::string_view WhyEnded() const;
    void AnswerByWork() noexcept;

    const AskedQuestion question_;
    const QuestionLimits limits_;
    const std::unique_ptr<AnswerWriter> writer_;
    Clock::time_point begin_;
    wm::EventObject stop_;
    std::atomic<bool> isOverTime_{false}, isEnded_{false};
    std::string ready_;  // written next
    std::int64_t rows_ = 0;
    bool isComplete_ = true, hasEnough_ = false;
    std::uint32_t untested_ = 0, damaged_ = 0;
    std::string why_;
    // Of a question that makes its answer itself.
    ZEL::IEventStore7* store_ = nullptr;
    const OnRow* onRow_ = nullptr;  // of the walk in hand
    std::set<std::string> failures_;
    std::string refusal_;
    bool hasWritten_ = false;
};

thread_local Questions::Run* Questions::Run::ofThread = nullptr;

// What was met ahead of the rows goes out ahead of them. Who has enough ends the query and says
// well: a result that is refused would count as a folder that can't be read.
HRESULT Questions::Run::TakeRows(ZEL::IValueCollection& rows, ZEL::IStringValue* resumeTime,
                                 std::int32_t resumeSequence) {
    if (hasEnough_ || isOverTime_ || stream->IsCancelled())
        return hr::ok;
    PutReports();
    const auto most =
        question_.limit < 0 ? SIZE_MAX : static_cast<std::size_t>(question_.limit - rows_);
    const AnswerWriter::Written written =
        writer_->Rows(rows, most, wm::ToText(resumeTime), resumeSequence, &ready_);
    rows_ += static_cast<std::int64_t>(written.rows);
    if (written.hasMore) {
        hasEnough_ = true;
        isComplete_ = false;
        End();
    }
    if (ready_.empty())
        return hr::ok;  // whether there is an answer shows with its first bytes
    const bool isTaken = stream->Write(ready_);
    ready_.clear();
    if (!isTaken)
        End();
    return hr::ok;
}

void Questions::Run::PutReports() {
    if (const std::uint32_t untested = std::exchange(untested_, 0))
        writer_->Untested(untested, why_, &ready_);
    if (const std::uint32_t damaged = std::exchange(damaged_, 0))
        writer_->Damaged(damaged, &ready_);
}

std::string_view Questions::Run::WhyEnded() const {
    if (isOverTime_)
        return "the agent has ended the question: its time was over (questions.time)";
    if (stream->HasStalled())
        return "the agent has ended the question: nothing was read for too long (questions.stall)";
    return "";
}

HRESULT Questions::Run::Walk(const std::string& document, const OnRow& onRow) {
    if (IsOver())
        return hr::aborted;
    const auto text = wm::ToValue(document);
    if (!text)
        return hr::unexpected;
    onRow_ = &onRow;
    const HRESULT result = store_->Query(text.Get(), this, stop_.Handle());
    onRow_ = nullptr;
    return result;
}

void Questions::Run::AnswerByWork() noexcept {
    const HRESULT result = ZEL::AtBoundary([&] {
        question_.work(*this);
        if (!hasWritten_ && refusal_.empty() && IsOver())
            refusal_.append(WhyEnded()).append("\n");
        return hr::ok;
    });
    if (Failed(result) && !hasWritten_)
        return stream->Finish("there is no memory for an answer\n", true);
    stream->Finish(hasWritten_ ? "" : refusal_, !hasWritten_, isOverTime_);
}

void Questions::Run::Answer(ZEL::IEventStore7& store) noexcept {
    Run* const outer = std::exchange(ofThread, this);
    if (question_.work) {
        store_ = &store;
        AnswerByWork();
        ofThread = outer;
        return;
    }
    HRESULT result = ZEL::AtBoundary([&] {
        const auto document = wm::ToValue(question_.document);
        return document ? store.Query(document.Get(), this, stop_.Handle()) : hr::unexpected;
    });
    ofThread = outer;
    const std::string_view words = WhyEnded();
    if (!words.empty())
        result = agentResult::overTime;
    else if (hasEnough_)
        result = hr::ok;
    const HRESULT written = ZEL::AtBoundary([&] {
        PutReports();
        writer_->End(result, isComplete_, words, &ready_);
        return hr::ok;
    });
    // Without memory for an end the stream ends without one, which a reader takes for a loss.
    stream->Finish(Failed(written) ? "" : ready_, Failed(result) && rows_ == 0, isOverTime_);
}

Questions::Questions(ZEL::IEventStore7& store, const QuestionLimits& limits,
                     wm::IErrorReportSink* inner)
    : store_(store), limits_(limits), inner_(inner) {
    wm::SetErrorReportSink(this);
    watcher_ = std::thread([this] { Watch(); });
}

Questions::~Questions() {
    Stop();
    wm::SetErrorReportSink(inner_);
}

void Questions::OnReport(const wm::ErrorReport& report) {
    if (Run::ofThread != nullptr)
        Run::ofThread->OnReport(report);
    if (inner_ != nullptr)
        inner_->OnReport(report);
}

void Questions::SetLimits(const QuestionLimits& limits) {
    const std::lock_guard hold(mutex_);
    limits_ = limits;
    wake_.notify_all();
}

QuestionLimits Questions::Limits() const {
    const std::lock_guard hold(mutex_);
    return limits_;
}

std::shared_ptr<AnswerStream> Questions::Ask(AskedQuestion question) {
    const auto run = std::make_shared<Run>(std::move(question), Limits());
    run->stream->onCancel = [this, weak = std::weak_ptr<Run>(run)] {
        if (const auto cancelled = weak.lock())
            Forget(cancelled);
    };
    const std::lock_guard hold(mutex_);
    ++asked_;
    const bool hasThread = idle_ > waiting_.size() || threads_.size() < limits_.atOnce;
    if (isStopping_ || (!hasThread && waiting_.size() >= limits_.waiting)) {
        ++refused_;
        return nullptr;
    }
    waiting_.push_back(run);
    if (idle_ < waiting_.size() && threads_.size() < limits_.atOnce)
        threads_.emplace_back([this] { Work(); });
    wake_.notify_one();
    return run->stream;
}

// One that waits leaves its place to others at once.
void Questions::Forget(const std::shared_ptr<Run>& run) {
    run->End();
    const std::lock_guard hold(mutex_);
    waiting_.erase(std::remove(waiting_.begin(), waiting_.end(), run), waiting_.end());
}

void Questions::Work() {
    std::unique_lock hold(mutex_);
    while (!isStopping_) {
        ++idle_;
        wake_.wait(hold, [this] {
            return isStopping_ || (!waiting_.empty() && running_.size() < limits_.atOnce);
        });
        --idle_;
        if (isStopping_)
            return;
        const std::shared_ptr<Run> run = std::move(waiting_.front());
        waiting_.pop_front();
        if (run->stream->IsCancelled())
            continue;
        run->Begin();
        running_.push_back(run);
        watch_.notify_one();
        hold.unlock();
        run->Answer(store_);
        hold.lock();
        running_.erase(std::find(running_.begin(), running_.end(), run));
        wake_.notify_one();
    }
}

// Looks only while something runs.
void Questions::Watch() {
    constexpr auto period = std::chrono::milliseconds(250);
    std::unique_lock hold(mutex_);
    while (!isStopping_) {
        if (running_.empty())
            watch_.wait(hold);
        else
            watch_.wait_for(hold, period);
        for (const auto& run : running_)
            run->EndIfOverTime();
    }
}

void Questions::Stop() {
    std::vector<std::shared_ptr<Run>> running;
    std::deque<std::shared_ptr<Run>> waiting;
    {
        const std::lock_guard hold(mutex_);
        if (std::exchange(isStopping_, true))
            return;
        running = running_;
        waiting.swap(waiting_);
        wake_.notify_all();
        watch_.notify_all();
    }
    for (const auto& run : running) {
        run->End();
        run->stream->Break();
    }
    for (const auto& run : waiting)
        run->stream->Finish("", false);
    for (std::thread& thread : threads_)
        thread.join();
    watcher_.join();
}

Questions::Counts Questions::Count() const {
    const std::lock_guard hold(mutex_);
    return {asked_, refused_, running_.size(), waiting_.size()};
}

}  // namespace zel
