#include "connection/fleetuse.h"
#include "connection/resultwords.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/query/answer.h"
#include "zel/query/askeddocument.h"
#include "zel/query/documentcheck.h"
#include "zel/query/querydocument.h"
#include "zel/query/resultintake.h"
#include "zel/query/textconditions.h"
#include "zel/query/trailer.h"
#include "zel/query/walk.h"
#include "zel/query/whynothing.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/pager.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/schema/eventfields.h"
#include "zelstore/schema/eventquery.h"

// The road of a question:
//
//   1. Flags become a document, or a document is read; from there on both are the same.
//   2. CheckDocument tells all that is wrong with it. Nothing has been opened so far.
//   3. PlanQuery settles how many rows to ask for, so that a limit's answer is exact.
//   4. The store answers on this thread: Query returns when all results were given to the intake.
//      A second thread, the Stopper, only looks whether the answer is still wanted.
//   5. Where the rows asked for held too few new events, the store is asked again (walk.h); the
//      intake knows what it has handed on and passes that over.
//   6. What is missing from the answer is told, and makes the program's end: unreadable folders,
//      rows that could not be tested, keys that could not be made. That more events fit than the
//      limit lets through is told too, but is no loss.

namespace zel {

namespace {

using web::json::value;
using ZEL::HRESULT;
namespace hr = ZEL::hr;

// A position is told also when nothing came, so that a script can go on with what was printed last,
// whatever it was.
void TellCursor(const QueryOptions& options, const ResultIntake& intake) {
    if (!options.showCursor)
        return;
    if (!intake.Position().time.empty())
        Say("cursor " + ToText(intake.Position()));
    else if (!options.afterCursor.empty())
        Say("cursor " + options.afterCursor);  // nothing came behind it
    else
        Say("no cursor: there was no row with a position");
}

// Nothing is cut off in silence: whether there is more is told, or that it is not known.
void TellLimit(const QueryPlan& plan, const ResultIntake& intake, bool hasMore) {
    if (plan.limit < 0)
        return;
    const std::string reached = "the limit of " + std::to_string(plan.limit) + " is reached; ";
    if (hasMore)
        Say(reached + "more events fit");
    else if (plan.byReceive && plan.FirstRows() >= 0 && intake.Rows() >= plan.FirstRows())
        Say(reached + "whether more follow is not known");
}

// False when there are any. Of a walk that was stopped only what went ahead of that is news.
bool TellFailures(const ResultIntake& intake, StoreSession& store) {
    if (!intake.HasEnough())
        return store.TellDatabaseErrors() == 0;
    ZEL::IgnoreResult(store->ClearDatabaseErrors(), "what is news was kept");
    for (const DatabaseError& failure : intake.FailuresSoFar())
        Say(failure.Text());
    return intake.FailuresSoFar().empty() && store.TellDatabaseErrors() == 0;
}

// False when something of the answer is missing.
bool TellGaps(const ResultIntake& intake, const EventFilter* filter, const LostRows& lostRows,
              StoreSession& store) {
    if (intake.MayRepeat())
        Say("more than " + std::to_string(SeenTexts::mostTexts) +
            " events: those behind them may be printed once for each time that they were stored");
    if (intake.Keyless() != 0)
        Say("the key of " + std::to_string(intake.Keyless()) + " event(s) can't be told");
    const std::uint64_t untested = filter != nullptr ? filter->Untested() : 0;
    if (untested != 0)
        Say(std::to_string(untested) + " event(s) could not be tested: they are no JSON");
    const bool allTested = lostRows.Tell() && untested == 0;
    const bool allRead = TellFailures(intake, store);
    return intake.Keyless() == 0 && allTested && allRead;
}

// A limit that let nothing through, as 0 does, is no empty answer where events fit.
int EndOf(HRESULT result, const QueryPlan& plan, const ResultIntake& intake, const Answer& answer,
          bool isWhole) {
    if (Failed(result)) {
        Say("the query failed: " + Describe(static_cast<std::int32_t>(result)));
        return IsStoreOut(result)                                             ? exitCode::noStore
               : result == hr::outOfMemory || result == agentResult::overTime ? exitCode::losses
                                                                              : exitCode::usage;
    }
    TellLimit(plan, intake, intake.HasMore() || answer.HasMore());
    if (!isWhole)
        return exitCode::losses;
    return intake.Count() > 0 || intake.HasMore() ? exitCode::done : exitCode::nothingFound;
}

ResultIntake::Wanted WantedOf(const QueryOptions& options, const QueryPlan& plan,
                              const AnswerPlan& answer) {
    using Wanted = ResultIntake::Wanted;
    const auto keys = options.printKeys  ? Wanted::alone
                      : answer.needsKeys ? Wanted::beside
                                         : Wanted::none;
    const std::int64_t limit = plan.ofFleet && answer.newest >= 0 ? answer.newest
                               : answer.order || answer.counts    ? -1
                                                                  : plan.limit;
    return {options.duplicates, keys, limit, options.key};
}

// Nobody wants the rest, or the sink can't take it. A walk that was stopped counts as a failure of
// its database, which is no news then; what a reader that went away did not want is no loss.
int EndOfBroken(const QueryOptions& options, const ResultIntake& intake, const Answer& answer,
                StoreSession& store) {
    if (answer.PrintsAtOnce())
        TellCursor(options, intake);
    else if (options.showCursor)
        Say("no cursor: the answer was not printed in full");
    ZEL::IgnoreResult(store->ClearDatabaseErrors(), "a table that was not cleared is told");
    if (Interrupted())
        return exitCode::interrupted;
    if (const std::string problem = answer.Problem(); !problem.empty()) {
        Say(problem);
        return exitCode::losses;
    }
    return exitCode::done;
}

// Ahead of the store's table of failures being told, which empties it.
void GatherFailures(const ResultIntake& intake, StoreSession& store, Trailer* trailer) {
    if (intake.HasEnough())
        trailer->failures = intake.FailuresSoFar();
    else
        store.ReadDatabaseErrors(&trailer->failures);
}

void TellTrailer(const AnswerPlan& plan, Trailer& trailer, int end, Output& output) {
    trailer.isWhole = trailer.isWhole && (end == exitCode::done || end == exitCode::nothingFound);
    if (plan.trailer == AnswerPlan::asLastLine)
        output.Write(trailer.Json() + "\n");
    else if (plan.trailer == AnswerPlan::toPeople)
        Say(trailer.Words());
}

int RunPlan(const QueryOptions& options, const QueryPlan& plan, const AnswerPlan& answerPlan,
            EventFilter* filter, Output& output) {
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::reading))
        return exitCode::noStore;
    Pager pager;
    if (answerPlan.usesPager)
        pager.Start();
    const bool hasTrailer = answerPlan.trailer != AnswerPlan::none;
    Trailer trailer = hasTrailer ? BeginTrailer(*store) : Trailer();
    LostRows lostRows;
    Answer answer(answerPlan, output);
    ResultIntake intake(answer.Sink(), filter, plan, WantedOf(options, plan, answerPlan), *store);
    const HRESULT result = Walk(plan, answerPlan.newest, store, intake, lostRows);
    const bool isFinished = intake.TakesResults() && answer.Sink().Finish() && output.Flush();
    if (!pager.Finish()) {
        output.Reopen();
        Say("the pager that PAGER names can't be run; --no-pager goes without one");
        return exitCode::losses;
    }
    if (!isFinished)
        return EndOfBroken(options, intake, answer, store);
    if (hasTrailer)
        GatherFailures(intake, store, &trailer);
    const bool isCounted = answer.TellCounts();
    const bool isWhole = TellGaps(intake, filter, lostRows, store) && isCounted;
    const int end = EndOf(result, plan, intake, answer, isWhole);
    if (end == exitCode::nothingFound && TalksToTerminal())
        TellNothingFound(plan.document, plan.ofFleet ? nullptr : &*store);
    trailer.found = answer.Shown(intake.Count());
    trailer.rows = static_cast<std::uint64_t>(intake.Rows());
    trailer.hasMore = intake.HasMore() || answer.HasMore();
    TellTrailer(answerPlan, trailer, end, output);
    TellCursor(options, intake);  // last, where scripts look for it
    return end;
}

// Tells what a row's key is tested for, machine-independent paths made concrete. By the store's own
// routine, so that what is told is what will be tested.
void TellConditions(const value& document) {
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

// Tells what is asked, and asks nothing.
void Explain(const QueryOptions& options, const TextConditions& conditions, const value& document,
             Output& output) {
    output.Write(PrettyDocument(document));
    for (const std::string& line : InWords(conditions))
        Say(line);
    if (!options.machine.empty())
        TellConditions(document);
}

int AskStore(const QueryOptions& options, const TextConditions& conditions, const value& document,
             Output& output) {
    QueryPlan plan = PlanQuery(document);
    plan.ofFleet = IsFleetUsed();
    if (options.limit == "0")
        plan.limit = 0;
    if (plan.byReceive && !conditions.empty()) {
        Say("conditions can't be combined with receive_time, whose rows tell times alone");
        return exitCode::usage;
    }
    TextFilter filter(conditions);
    plan.asksForAll = !conditions.empty();
    AnswerPlan answer;
    std::string problem;
    if (PlanAnswer(options, &plan, &answer, &problem))
        return RunPlan(options, plan, answer, conditions.empty() ? nullptr : &filter, output);
    Say(problem);
    return exitCode::usage;
}

}  // namespace

bool AskWithFlags(const QueryOptions& options, ParameterQuestion* question, std::string* problem) {
    value document;
    TextConditions conditions;
    if (!ReadTextConditions(options, &conditions, problem) ||
        !BuildDocument(options, &document, problem, NarrowingOf(conditions)))
        return false;
    if (!conditions.empty() && PlanQuery(document).byReceive) {
        *problem = "by: what is asked of an event's text can't be combined with receive";
        return false;
    }
    const DocumentFindings found = CheckDocument(document);
    if (!found.errors.empty()) {
        *problem = found.errors.front();
        return false;
    }
    question->document = utility::conversions::to_utf8string(document.serialize());
    if (!conditions.empty())
        question->fits = [filter = std::make_shared<TextFilter>(conditions)](
                             std::string_view event) { return filter->Fits(event); };
    return true;
}

int RunQuery(const QueryOptions& options) {
    if (!options.machine.empty() && !UseMachine(options.machine))
        return exitCode::usage;
    value document;
    TextConditions conditions;
    if (const int end = ReadAsked(options, &conditions, &document); end != exitCode::done)
        return end;
    Output output;
    if (!options.explain)
        return output.Finish(AskStore(options, conditions, document, output));
    Explain(options, conditions, document, output);
    return output.Finish(exitCode::done);
}

}  // namespace zel
