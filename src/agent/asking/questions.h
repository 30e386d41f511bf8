#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "agent/asking/answerstream.h"
#include "common/errorreport.h"
#include "zelstore/ieventstore.h"

namespace zel {

struct QuestionLimits {
    std::uint64_t atOnce = 16;        // that are worked on
    std::uint64_t waiting = 64;       // beside these
    std::chrono::seconds time{600};   // that one may be worked on, waits for its reader apart
    std::chrono::seconds stall{600};  // how long its reader may read nothing
    std::size_t buffer = 1U << 20;    // bytes of an answer that wait for its reader
};

enum class AnswerForm {
    frames,  // rowframes.h, for this system's own programs
    lines,   // one result a line, and a last line that tells the end
};

// What a question may do that makes something of rows itself. For the thread of the question.
class QuestionWork {
public:
    using OnRow = std::function<ZEL::HRESULT(const ZEL::QueryRow& row)>;

    virtual ~QuestionWork() = default;
    // Walks the rows of a document without a limit, as IQueryRows tells it. Once the question is
    // over no more rows come, and later walks end at once. The store's result.
    virtual ZEL::HRESULT Walk(const std::string& document, const OnRow& onRow) = 0;
    // Waits for room. False when nobody reads any more.
    virtual bool Write(std::string_view bytes) = 0;
    // In place of all other bytes: why there is no answer.
    virtual void Refuse(std::string words) = 0;
    // Whether its time is over or its reader has gone.
    virtual bool IsOver() const = 0;
    // An array of JSON: what could not be read in any walk so far.
    virtual std::string NotRead() const = 0;
};

struct AskedQuestion {
    std::string document;
    AnswerForm form = AnswerForm::frames;
    std::int64_t limit = -1;  // most rows; negative: as the document says
    // Of lines: which rows are wanted of those that the document finds; null: all. Asked on the
    // thread of the question.
    std::function<bool(std::string_view row)> fits = nullptr;
    // In place of all of the above: makes the answer. Called once, on the thread of the question.
    std::function<void(QuestionWork& work)> work = nullptr;
};

// What the parameters of a request ask: fills document and filter. False with words that name the
// parameter. Any thread.
using AskByParameters =
    std::function<bool(const std::vector<std::pair<std::string, std::string>>& parameters,
                       AskedQuestion* question, std::string* problem)>;

// Answers questions to the store of this process: many at once, on threads of its own, each with a
// bounded buffer to its reader. What failed for one is told in its own answer, whatever others meet
// at the same time. Any thread.
class Questions final : public wm::IErrorReportSink {
public:
    // Stands ahead of the host's report sink `inner`, which may be null, while it lives. All
    // outlive the object; the store is started and is not stopped before Stop.
    Questions(ZEL::IEventStore7& store, const QuestionLimits& limits, wm::IErrorReportSink* inner);
    ~Questions() override;
    Questions(const Questions&) = delete;
    Questions& operator=(const Questions&) = delete;

    // For questions that are asked from now on.
    void SetLimits(const QuestionLimits& limits);
    // The answer, which begins when a thread is free; null when too many wait already, or the
    // questions are stopped.
    std::shared_ptr<AnswerStream> Ask(AskedQuestion question);
    // Ends all that run, drops those that wait, and waits for the threads.
    void Stop();

    struct Counts {
        std::uint64_t asked = 0, refused = 0, running = 0, waiting = 0;
    };
    Counts Count() const;

    void OnReport(const wm::ErrorReport& report) override;

private:
    class Run;

    QuestionLimits Limits() const;
    // Its reader has gone.
    void Forget(const std::shared_ptr<Run>& run);
    void Work();
    void Watch();

    ZEL::IEventStore7& store_;
    QuestionLimits limits_;
    wm::IErrorReportSink* const inner_;
    mutable std::mutex mutex_;
    std::condition_variable wake_, watch_;
    std::deque<std::shared_ptr<Run>> waiting_;
    std::vector<std::shared_ptr<Run>> running_;
    std::vector<std::thread> threads_;
    std::thread watcher_;
    std::uint64_t asked_ = 0, refused_ = 0, idle_ = 0;
    bool isStopping_ = false;
};

}  // namespace zel
