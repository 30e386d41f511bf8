#include "connection/fleetanswer.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <thread>
#include <utility>

#include "common/eventobject.h"
#include "connection/agentrequest.h"

// Pages: the first one is small, so that it comes soon and most questions end with it; later ones
// are larger, since the server looks for each anew. Behind a page stands the last row of it, wanted
// or not, and the next one goes on from there. So does the first page behind a failure that may
// pass: rows that were given are not given again.
//
// Enrichments stand in a table of their own. Where they are wanted rows wait for them until a page
// ends, or until there are so many that they should not wait any longer.

namespace zel {

namespace {

using fleet::FleetFailure;
using fleet::FleetQuestion;
using fleet::FleetRemedy;
using fleet::FleetRow;
using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr std::uint64_t firstPage = 10'000;
constexpr std::uint64_t largestPage = 160'000;
constexpr std::uint64_t growth = 4;
constexpr const char* noAnswer =
    "the fleet's server does not answer as one does that has the events of stores";

fleet::FleetScope::Order OrderOf(ZEL::IQueryCallback& callback, std::vector<std::string>* hosts) {
    ZEL::CountedPtr<IFleetCallback> face;
    if (Failed(callback.QueryInterface(iidFleetCallback, face.ReceiveVoid())))
        return fleet::FleetScope::Order::parts;
    if (const std::string_view host = face->OnlyHost(); !host.empty()) {
        const bool isAsked =
            hosts->empty() || std::find(hosts->begin(), hosts->end(), host) != hosts->end();
        // A host that is not among those asked: what no host is called.
        hosts->assign(1, isAsked ? std::string(host) : std::string(1, '\0'));
    }
    switch (face->RowOrder()) {
        case IFleetCallback::Order::oldestFirst:
            return fleet::FleetScope::Order::oldestFirst;
        case IFleetCallback::Order::newestFirst:
            return fleet::FleetScope::Order::newestFirst;
        default:
            return fleet::FleetScope::Order::parts;
    }
}

}  // namespace

FleetAnswer::FleetAnswer(const fleet::FleetAddress& address, const std::vector<std::string>& hosts,
                         ZEL::IQueryCallback& callback, ZEL::HANDLE stop)
    : stop_(stop),
      client_(address, [this] { return IsOver(); }),
      joinClient_(address, [this] { return IsOver(); }),
      delivery_(callback) {
    scope_.hosts = hosts;
    scope_.order = OrderOf(callback, &scope_.hosts);
}

// A setting of an auto-reset event is used up by the look.
bool FleetAnswer::IsOver(std::uint32_t waitMs) {
    if (stop_ == nullptr)
        std::this_thread::sleep_for(std::chrono::milliseconds(waitMs));
    else
        isStopped_ = isStopped_ || wm::WaitForAny(1, &stop_, waitMs) == 0;
    return isStopped_;
}

// False, so that whoever is called from elsewhere ends as well.
bool FleetAnswer::End(HRESULT result, std::string problem) {
    hasEnded_ = true;
    result_ = result;
    problem_ = std::move(problem);
    return false;
}

HRESULT FleetAnswer::Give(const std::string& document) {
    question_ = FleetQuestion::Make(document, scope_, &problem_);
    if (!question_)
        return fleetResult::refused;
    for (step_ = 0; step_ < question_->Steps() && !hasEnded_; ++step_)
        GiveStep();
    if (!Failed(result_))
        if (const HRESULT flushed = delivery_.Flush(); Failed(flushed))
            End(flushed);
    return result_;
}

void FleetAnswer::GiveStep() {
    if (question_->IsByReceive(step_) && scope_.hosts.size() != 1) {
        End(fleetResult::refused,
            "times of receipt are those of one host's clock: name it with --host");
        return;
    }
    hasLast_ = false;
    std::uint64_t most = firstPage;
    while (GivePage(RowsToAsk(most)))
        most = std::min(most * growth, largestPage);
}

// No more than the limit leaves, where each row that comes is one of the answer.
std::uint64_t FleetAnswer::RowsToAsk(std::uint64_t most) const {
    const std::int64_t limit = question_->MostRows();
    if (limit < 0 || question_->GivesTooMuch(step_) || question_->LeavesOutLive())
        return most;
    return std::min(most, static_cast<std::uint64_t>(limit) - given_);
}

// Whether a further page is to be asked.
bool FleetAnswer::GivePage(std::uint64_t rows) {
    came_ = 0;
    FleetFailure failure;
    const std::string statement = question_->Page(step_, rows, hasLast_ ? &last_ : nullptr);
    const bool isWhole = client_.Select(
        statement, [this](std::string_view line) { return TakeLine(line); }, &failure);
    if (hasEnded_)
        return false;
    // What came ahead of a failure is as good as what comes behind it.
    if (!waiting_.empty() && !GiveWaiting())
        return false;
    return isWhole ? came_ == rows : AsksAgain(failure);
}

bool FleetAnswer::TakeLine(std::string_view line) {
    if (IsOver())
        return End(hr::aborted);
    if (!reader_.Read(line, &row_))
        return End(fleetResult::lost, noAnswer);
    ++came_;
    failures_ = 0;
    const bool goesOn =
        question_->Decide(step_, row_) != FleetQuestion::Verdict::wanted || TakeRow();
    std::swap(row_, last_);
    hasLast_ = true;
    return goesOn;
}

bool FleetAnswer::TakeRow() {
    constexpr std::size_t mostWaiting = 500, mostBytes = 4U << 20;
    if (question_->IsByReceive(step_))
        return Give(row_, ReceiptText(row_));
    if (!question_->JoinsEnrichments() && !question_->LeavesOutLive())
        return Give(row_, row_.event);
    waitingBytes_ += row_.event.size() + row_.key.size();
    waiting_.push_back(row_);
    return (waiting_.size() < mostWaiting && waitingBytes_ < mostBytes) || GiveWaiting();
}

bool FleetAnswer::GiveWaiting() {
    const std::vector<FleetRow> rows = std::exchange(waiting_, {});
    waitingBytes_ = 0;
    for (std::size_t at = 0; at < rows.size();) {
        fleet::EnrichmentJoin join;
        std::size_t taken = 0;
        FleetFailure failure;
        bool isGood = true;
        const std::string statement = join.Statement(std::span(rows).subspan(at), &taken);
        const auto add = [&](std::string_view line) { return isGood = join.Add(line); };
        while (!joinClient_.Select(statement, add, &failure))
            if (!AsksAgain(failure))
                return false;
        if (!isGood)
            return End(fleetResult::lost, noAnswer);
        for (const FleetRow& row : std::span(rows).subspan(at, taken)) {
            if (question_->LeavesOutLive() && join.HasLive(row))
                continue;
            const bool isJoined = question_->JoinsEnrichments();
            if (!(isJoined ? Give(row, ResultText(row, join.ArrayOf(row))) : Give(row, row.event)))
                return false;
        }
        at += taken;
    }
    return true;
}

bool FleetAnswer::Give(const FleetRow& row, std::string_view text) {
    const HRESULT result = delivery_.Give(row, text, question_->IsByReceive(step_));
    if (Failed(result) || result == hr::nothingToDo)
        return End(Failed(result) ? result : hr::ok);
    ++given_;
    if (question_->MostRows() < 0 || given_ < static_cast<std::uint64_t>(question_->MostRows()))
        return true;
    isComplete_ = false;
    return End(hr::ok);
}

// Waits a while; false when that is of no use, and the answer has ended.
bool FleetAnswer::AsksAgain(const FleetFailure& failure) {
    constexpr unsigned mostFailures = 4;
    constexpr unsigned firstPauseMs = 250, tickMs = 50;
    if (failure.remedy == FleetRemedy::over)
        return End(hr::aborted);
    const bool mayPass =
        failure.remedy == FleetRemedy::again || failure.remedy == FleetRemedy::later;
    // Where no server has answered yet, a person would rather know than wait.
    const bool isThere = hasLast_ || failure.code != 0;
    if (!mayPass || !isThere || ++failures_ >= mostFailures) {
        constexpr int tooSlow[] = {159, 160};
        const bool isOverTime =
            std::find(std::begin(tooSlow), std::end(tooSlow), failure.code) != std::end(tooSlow);
        return End(isOverTime ? agentResult::overTime : fleetResult::lost, failure.text);
    }
    for (unsigned waited = 0; waited < (firstPauseMs << failures_); waited += tickMs)
        if (IsOver(tickMs))
            return End(hr::aborted);
    return true;
}

}  // namespace zel
