#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <iterator>
#include <mutex>
#include <thread>

#include "common/eventobject.h"
#include "common/hostservices.h"
#include "common/lock.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/query/documentcheck.h"
#include "zel/query/querydocument.h"
#include "zel/query/resultprinter.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/schema/eventfields.h"
#include "zelstore/schema/eventquery.h"

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

// Stops the query when the user or the reader of the output asks for it. One setting stops the walk
// of one database only, so it is repeated until the query has ended.
class Stopper {
public:
    Stopper(wm::EventObject& stop, const ResultPrinter& printer)
        : thread_([this, &stop, &printer] { Watch(stop, printer); }) {}
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
    void Watch(wm::EventObject& stop, const ResultPrinter& printer) {
        constexpr auto period = std::chrono::milliseconds(20);
        std::unique_lock<std::mutex> hold(lock_);
        while (!wake_.wait_for(hold, period, [this] { return ended_; })) {
            if (!printer.Wanted())
                stop.Set();
        }
    }

    std::mutex lock_;
    std::condition_variable wake_;
    bool ended_ = false;
    std::thread thread_;  // the last: it uses the others
};

// Stands ahead of the host's report sink while it lives, and counts the rows that the store could
// not test: it reports each of them.
class LostRows final : public wm::IErrorReportSink {
public:
    LostRows() { wm::SetErrorReportSink(this); }
    ~LostRows() override { wm::SetErrorReportSink(HostReports()); }
    LostRows(const LostRows&) = delete;
    LostRows& operator=(const LostRows&) = delete;

    void OnReport(const wm::ErrorReport& report) override {
        if (report.Label() == wm::reportLabel::lostRow) {
            const wm::Hold hold(lock_);
            if (count_++ == 0 && !report.Details().empty())
                why_ = report.Details().front().second;
        }
        if (HostReports() != nullptr)
            HostReports()->OnReport(report);
    }

    // False when there are any.
    bool Tell() const {
        const wm::Hold hold(lock_);
        if (count_ == 0)
            return true;
        const bool isCostly = why_.find("complexity") != std::string::npos ||
                              why_.find("stack space") != std::string::npos;
        Say(std::to_string(count_) + " row(s) could not be tested: " +
            (isCostly ? "the pattern is too costly for them; fewer .* help" : why_));
        return false;
    }

private:
    mutable wm::Lock lock_;
    std::uint64_t count_ GUARDED_BY(lock_) = 0;
    std::string why_ GUARDED_BY(lock_);
};

bool GetDocument(const QueryOptions& options, web::json::value* document, std::string* problem) {
    if (options.document.empty())
        return BuildDocument(options, document, problem);
    std::string text = options.document;
    if (text == "-")
        text.assign(std::istreambuf_iterator<char>(std::cin), {});
    return ParseDocument(text, document, problem);
}

// Tells all that is wrong with the document. False when it is not to be run.
bool Accepts(const web::json::value& document) {
    constexpr std::size_t mostTold = 20;
    const DocumentFindings found = CheckDocument(document);
    for (std::size_t i = 0; i < found.errors.size() && i < mostTold; ++i)
        Say(found.errors[i]);
    if (found.errors.size() > mostTold)
        Say("and " + std::to_string(found.errors.size() - mostTold) + " more");
    for (std::size_t i = 0; found.errors.empty() && i < found.warnings.size(); ++i)
        Say("note: " + found.warnings[i]);
    return found.errors.empty();
}

void TellCursor(const QueryOptions& options, const ResultPrinter& printer) {
    if (!options.showCursor)
        return;
    if (!printer.Position().time.empty())
        Say("cursor " + ToText(printer.Position()));
    else if (!options.afterCursor.empty())
        Say("cursor " + options.afterCursor);  // nothing came behind it
    else
        Say("no cursor: there was no row with a position");
}

int EndOf(HRESULT result, const ResultPrinter& printer, bool hasLosses) {
    if (Failed(result)) {
        Say("the query failed: " + Describe(static_cast<std::int32_t>(result)));
        return result == hr::outOfMemory ? exitCode::losses : exitCode::usage;
    }
    if (!printer.Complete())
        Say("the limit has cut results off");
    if (hasLosses)
        return exitCode::losses;
    return printer.Count() > 0 ? exitCode::done : exitCode::nothingFound;
}

std::string FormName(const QueryOptions& options) {
    if (!options.output.empty())
        return options.output;
    return ::isatty(STDOUT_FILENO) == 1 ? "table" : "ndjson";
}

int RunPlan(const QueryOptions& options, const QueryPlan& plan, Output& output) {
    const auto text = wm::ToValue(plan.document);
    StoreSession store(Terminal());
    wm::EventObject stop;
    if (!text || !stop.Create(false, false) || !store.Open(StoreNeed::existing))
        return exitCode::noStore;
    const LostRows lostRows;
    const auto form = MakeResultForm(FormName(options), TerminalColumns());
    ResultPrinter printer(output, *form, plan, *store);
    HRESULT result = hr::ok;
    {
        const Stopper stopper(stop, printer);
        result = store->Query(text.Get(), &printer, stop.Handle());
    }
    output.Flush();
    TellCursor(options, printer);
    // A walk that was stopped counts as a failure of its database, which is no news then; what a
    // reader that went away did not want is no loss.
    if (!printer.Wanted()) {
        ZEL::IgnoreResult(store->ClearDatabaseErrors(), "a table that was not cleared is told");
        return Interrupted() ? exitCode::interrupted : exitCode::done;
    }
    const bool allTested = lostRows.Tell();
    const bool allRead = store.TellDatabaseErrors() == 0;
    return EndOf(result, printer, !allTested || !allRead);
}

// Tells what a row's key is tested for, machine-independent paths made concrete.
void TellConditions(const web::json::value& document) {
    ZEL::Schema::EventQuery query;
    query.FromJson(document);
    for (std::size_t i = 0; i < query.events.size(); ++i) {
        ZEL::Schema::FilterMap fields;
        const HRESULT result =
            ExtractKeyFields(query.events[i], true, &ZEL::MachinePaths(), fields);
        const std::string where = "events[" + std::to_string(i) + "]";
        if (Failed(result))
            Say(where + ": " + Describe(static_cast<std::int32_t>(result)));
        for (const auto& [field, conditions] : fields)
            for (const auto& [value, op] : conditions) {
                std::string line = where;
                line.append(" ").append(field).append(" ").append(
                    utility::conversions::to_utf8string(ZEL::Schema::OperatorTypes().Name(op.op)));
                Say(line.append(" ").append(value));
            }
    }
}

}  // namespace

int RunQuery(const QueryOptions& options) {
    if (!options.machine.empty() && !UseMachine(options.machine))
        return exitCode::usage;
    web::json::value document;
    std::string problem;
    const bool isThere = GetDocument(options, &document, &problem);
    if (Interrupted())
        return exitCode::interrupted;
    if (!isThere) {
        Say(problem);
        return exitCode::usage;
    }
    if (!Accepts(document))
        return exitCode::usage;
    Output output;
    if (!options.explain)
        return output.Finish(RunPlan(options, PlanQuery(document), output));
    output.Write(PrettyDocument(document));
    if (!options.machine.empty())
        TellConditions(document);
    return output.Finish(exitCode::done);
}

}  // namespace zel
