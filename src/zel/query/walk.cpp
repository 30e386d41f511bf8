#include "zel/query/walk.h"

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "common/valuetext.h"
#include "zel/query/newestwindows.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"

// The store answers from the oldest event on and counts rows. What people want is told in events,
// and often from the newest on. So the store is asked several times where that is cheaper: for
// twice as many rows where those that were asked for held too few new events; and for the newest
// events by one range of time after the other, from the newest back (newestwindows.h).

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

// Stops the query when the user or the reader of the output asks for it. One setting stops the walk
// of one database only, so it is repeated until the query has ended. Looks from time to time:
// whether results are still taken is only known by asking.
class Stopper {
public:
    Stopper(wm::EventObject& stop, const ResultIntake& intake)
        : thread_([this, &stop, &intake] { Watch(stop, intake); }) {}
    ~Stopper() {
        {
            const std::lock_guard<std::mutex> hold(lock_);
            ended_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    Stopper(const Stopper&) = delete;
    Stopper& operator=(const Stopper&) = delete;

private:
    void Watch(wm::EventObject& stop, const ResultIntake& intake) {
        constexpr auto period = std::chrono::milliseconds(20);
        std::unique_lock<std::mutex> hold(lock_);
        while (!wake_.wait_for(hold, period, [this] { return ended_; })) {
            if (!intake.TakesResults() || intake.HasEnough())
                stop.Set();
        }
    }

    std::mutex lock_;
    std::condition_variable wake_;
    bool ended_ = false;
    std::thread thread_;  // the last: it uses the others
};

// How many rows a report tells of.
std::uint64_t RowsOf(const wm::ErrorReport& report) {
    std::uint64_t rows = 1;
    for (const auto& [name, value] : report.Details())
        if (name == wm::lostDetail::rows)
            std::from_chars(value.data(), value.data() + value.size(), rows);
    return rows;
}

HRESULT Ask(const QueryPlan& plan, std::int64_t rows, StoreSession& store, ResultIntake& intake,
            const wm::EventObject& stop) {
    const auto text = wm::ToValue(plan.TextFor(rows));
    if (!text)
        return hr::outOfMemory;
    const HRESULT result = store->Query(text.Get(), &intake, stop.Handle());
    return intake.HasEnough() ? hr::ok : result;
}

// Each walk begins anew, so what the former one met is met and counted again. Ends, since each walk
// asks for twice as many rows and the store has only so many.
HRESULT WalkFromOldest(const QueryPlan& plan, StoreSession& store, ResultIntake& intake,
                       const wm::EventObject& stop, LostRows& lostRows) {
    const std::int64_t firstRows = plan.FirstRows();
    for (std::int64_t rows = firstRows;; rows *= 2) {
        if (rows != firstRows) {
            lostRows.Forget();
            ZEL::IgnoreResult(store->ClearDatabaseErrors(), "then failures count twice");
        }
        intake.StartWalk();
        const HRESULT result = Ask(plan, rows, store, intake, stop);
        if (Failed(result) || intake.HasEnough() || !intake.WantsMore(rows))
            return result;
    }
}

// The ranges do not overlap, so that what one of them lost no later one meets again; a folder that
// can't be opened is counted once for each.
HRESULT WalkFromNewest(const QueryPlan& plan, std::int64_t newest, StoreSession& store,
                       ResultIntake& intake, const wm::EventObject& stop) {
    NewestWindows windows(plan.document, newest);
    QueryPlan window = plan;
    while (windows.Next(intake.Count(), &window.document)) {
        const HRESULT result = Ask(window, -1, store, intake, stop);
        if (Failed(result) || !intake.TakesResults() ||
            intake.Count() >= static_cast<std::uint64_t>(newest))
            return result;
    }
    return hr::ok;
}

}  // namespace

LostRows::LostRows() {
    wm::SetErrorReportSink(this);
}

LostRows::~LostRows() {
    wm::SetErrorReportSink(HostReports());
}

void LostRows::OnReport(const wm::ErrorReport& report) {
    if (report.Label() == wm::reportLabel::lostRow) {
        const wm::Hold hold(lock_);
        if (count_ == 0 && !report.Details().empty())
            why_ = report.Details().front().second;
        count_ += RowsOf(report);
    }
    if (HostReports() != nullptr)
        HostReports()->OnReport(report);
}

void LostRows::Forget() {
    const wm::Hold hold(lock_);
    count_ = 0;
}

bool LostRows::Tell() const {
    const wm::Hold hold(lock_);
    if (count_ == 0)
        return true;
    const bool isCostly = why_.find("complexity") != std::string::npos ||
                          why_.find("stack space") != std::string::npos;
    Say(std::to_string(count_) + " row(s) could not be tested: " +
        (isCostly ? "the pattern is too costly for them; fewer .* help" : why_));
    return false;
}

// The stopper ends with the walk, so that what follows can't be stopped half-way: the end is told
// in full.
HRESULT Walk(const QueryPlan& plan, std::int64_t newest, StoreSession& store, ResultIntake& intake,
             LostRows& lostRows) {
    wm::EventObject stop;
    if (!stop.Create(wm::EventReset::automatic))
        return hr::outOfMemory;
    const Stopper stopper(stop, intake);
    if (plan.ofFleet)
        return Ask(plan, newest >= 0 && !plan.asksForAll ? newest : plan.FirstRows(), store, intake,
                   stop);
    return newest >= 0 ? WalkFromNewest(plan, newest, store, intake, stop)
                       : WalkFromOldest(plan, store, intake, stop, lostRows);
}

}  // namespace zel
