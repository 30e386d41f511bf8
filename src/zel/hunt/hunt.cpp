#include <unistd.h>

#include <algorithm>
#include <optional>

#include "connection/fleetuse.h"
#include "connection/resultwords.h"
#include "connection/storesession.h"
#include "hunt/ruleset.h"
#include "zel/commands.h"
#include "zel/hunt/hitmarks.h"
#include "zel/hunt/huntexplain.h"
#include "zel/hunt/huntsink.h"
#include "zel/hunt/huntsummary.h"
#include "zel/hunt/rulefiles.h"
#include "zel/query/documentcheck.h"
#include "zel/query/queryarguments.h"
#include "zel/query/resultintake.h"
#include "zel/query/textconditions.h"
#include "zel/query/walk.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/pager.h"

// The road of a hunt: rules are read and made ready together; what keys decide of all of them
// becomes one document, so that the store is walked once however many rules there are; what the
// walk gives is tested (huntsink.h) on this thread. Rules that can't be asked are told and counted,
// never passed over.

namespace zel {

namespace {

using web::json::value;
using ZEL::HRESULT;

constexpr const char* allTimes = "1601-01-01T00:00:00.000Z";

// The sub-queries of the rules within the times of the question.
bool MakeDocument(const RuleSet& rules, const QueryOptions& question, const Narrowing& asked,
                  bool joinsEnrichments, value* document, std::string* problem) {
    QueryArguments arguments;
    if (!ReadArguments(question, &arguments, problem))
        return false;
    const std::string since = std::max({std::string(allTimes), arguments.since, asked.since});
    std::string until = arguments.until;
    if (until.empty() || (!asked.until.empty() && asked.until < until))
        until = asked.until;
    std::string parts;
    for (Narrowing part : rules.Narrowings()) {
        part.since = since;
        part.until = until;
        parts += (parts.empty() ? "" : ",") + SubQueryOf(part);
    }
    const std::string joins = joinsEnrichments ? R"(,"include_enrichments":true)" : "";
    return ParseDocument(R"({"event_query":{"events":[)" + parts + "]" + joins + "}}", document,
                         problem);
}

bool ReadForm(const HuntOptions& options, FormChoice* form, std::string* problem) {
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    form->name = !options.output.empty() ? options.output : isTerminal ? "table" : "ndjson";
    form->columns = TerminalColumns();
    form->isForTerminal = isTerminal;
    form->hasHosts = IsFleetUsed();
    const std::string& name = options.question.answer.zone;
    auto zone = ZoneTime::Find(name.empty() ? "UTC" : name, problem);
    if (zone)
        form->zone = std::move(*zone);
    else
        *problem = "--tz: " + *problem;
    return zone.has_value();
}

struct HuntPlan {
    const HuntOptions& options;
    const RuleSet& rules;
    std::size_t wanted;  // of the rules
    FormChoice form;
    TextConditions conditions;
    value document;
};

class HuntRun {
public:
    HuntRun(const HuntPlan& plan, StoreSession& store, Output& output)
        : plan_(plan), store_(store), output_(output) {}

    int Run();

private:
    // False when the store could not be asked.
    bool Walk(HuntSink& sink);
    int End(const HuntSink& sink);

    const HuntPlan& plan_;
    StoreSession& store_;
    Output& output_;
    std::uint64_t rows_ = 0;
    bool isWhole_ = true;
    int failedEnd_ = exitCode::losses;
};

bool HuntRun::Walk(HuntSink& sink) {
    QueryPlan query = PlanQuery(plan_.document);
    query.asksForAll = true;
    query.ofFleet = IsFleetUsed();
    LostRows lostRows;
    ResultIntake intake(sink, &sink, query, {}, *store_);
    const HRESULT result = zel::Walk(query, -1, store_, intake, lostRows);
    if (!intake.TakesResults() || !sink.Finish() || !output_.Flush()) {
        ZEL::IgnoreResult(store_->ClearDatabaseErrors(), "a walk that was stopped is no failure");
        isWhole_ = false;
        return true;
    }
    rows_ = static_cast<std::uint64_t>(intake.Rows());
    if (intake.MayRepeat())
        Say("more hits than can be remembered: those of events that were stored twice may be told "
            "twice");
    if (sink.Untested() != 0)
        Say(std::to_string(sink.Untested()) + " event(s) could not be tested: they are no JSON");
    const bool allTested = lostRows.Tell() && sink.Untested() == 0;
    isWhole_ = store_.TellDatabaseErrors() == 0 && allTested;
    if (Failed(result)) {
        Say("the query failed: " + Describe(static_cast<std::int32_t>(result)));
        failedEnd_ = IsStoreOut(result) ? exitCode::noStore : exitCode::losses;
    }
    return Succeeded(result);
}

int HuntRun::End(const HuntSink& sink) {
    const std::uint64_t givenUp = sink.Counter().GivenUp();
    if (givenUp != 0)
        Say("there were too many groups to count: " + std::to_string(givenUp) +
            " were given up ahead of their time");
    Say(std::to_string(sink.Hits()) + " hit(s) of " + std::to_string(sink.RulesThatHit()) +
        " rule(s) in " + std::to_string(rows_) + " event(s) that were looked at");
    if (!isWhole_ || givenUp != 0)
        return exitCode::losses;
    return sink.Hits() != 0 ? exitCode::done : exitCode::nothingFound;
}

int HuntRun::Run() {
    HuntSummary summary;
    HitMarks marks(store_);
    TextFilter filter(plan_.conditions);
    const auto form = MakeHitForm(plan_.form);
    HuntSink::Ways ways;
    ways.form = plan_.options.summary ? nullptr : form.get();
    ways.summary = plan_.options.summary ? &summary : nullptr;
    ways.marks = plan_.options.enriches ? &marks : nullptr;
    ways.wanted = plan_.wanted;
    ways.first = plan_.conditions.empty() ? nullptr : &filter;
    HuntSink sink(plan_.rules, ways, output_);
    const bool asksAny = !plan_.rules.Narrowings().empty();
    if (asksAny ? !Walk(sink) : !sink.Finish())
        return failedEnd_;
    if (Interrupted())
        return exitCode::interrupted;
    if (!output_.Usable())
        return exitCode::done;
    if (ways.summary != nullptr)
        output_.Write(summary.Print(plan_.rules.Rules(), plan_.form));
    if (ways.marks != nullptr) {
        const bool isWritten = store_.Close();
        isWhole_ = marks.Tell() && isWritten && isWhole_;
    }
    return End(sink);
}

int Ask(const HuntPlan& plan, Output& output) {
    StoreSession store(Terminal());
    if (!store.Open(plan.options.enriches ? StoreNeed::existing : StoreNeed::reading))
        return exitCode::noStore;
    Pager pager;
    const bool isTable = plan.form.isForTerminal && plan.form.name == "table";
    if (isTable && !plan.options.question.answer.noPager && TalksToTerminal())
        pager.Start();
    const int end = HuntRun(plan, store, output).Run();
    output.Flush();
    if (!pager.Finish()) {
        output.Reopen();
        Say("the pager that PAGER names can't be run; --no-pager goes without one");
        return exitCode::losses;
    }
    return end;
}

// What rules there are to ask, told. False when the program is to end with `*end`.
bool TellRules(const HuntOptions& options, const GivenRules& given, const RuleSet& rules,
               const Correlator& counter, const std::vector<RuleProblem>& problems, int* end) {
    TellProblems(problems, TellsAll());
    std::string words = InWords(CountReach(rules, counter));
    if (!problems.empty())
        words += ", refused " + std::to_string(problems.size());
    if (given.unwanted != 0)
        words += ", left out " + std::to_string(given.unwanted);
    Say(words);
    const bool isBad = !problems.empty() && (options.strict || options.check);
    const bool isNothing = rules.Rules().empty() && !problems.empty();
    if (isBad || isNothing)
        *end = exitCode::usage;
    return !isBad && !isNothing;
}

using Preparing = std::optional<InterruptsEndAtOnce>;

int RunRules(const HuntOptions& options, GivenRules& given, Preparing& preparing, Output& output) {
    std::vector<RuleProblem> problems = std::move(given.problems);
    const RuleSet rules(std::move(given.rules), {options.asksAuditLog});
    const Correlator counter(rules);
    problems.insert(problems.end(), counter.Problems().begin(), counter.Problems().end());
    HuntPlan plan{options, rules, given.wanted, {}, {}, {}};
    std::string problem;
    const bool isGood = ReadForm(options, &plan.form, &problem) &&
                        ReadTextConditions(options.question, &plan.conditions, &problem) &&
                        MakeDocument(rules, options.question, NarrowingOf(plan.conditions),
                                     options.enriches, &plan.document, &problem);
    if (!isGood) {
        Say(problem);
        return exitCode::usage;
    }
    if ((options.check || options.explain) && plan.form.name == "csv") {
        Say("there is no CSV of what decides rules; -o json, ndjson or table");
        return exitCode::usage;
    }
    preparing.reset();
    int end = exitCode::done;
    const bool isToRun = TellRules(options, given, rules, counter, problems, &end);
    if (options.check || options.explain) {
        const bool isText = options.output.empty() || plan.form.name == "table";
        PrintReach(rules, counter, isText ? "text" : plan.form.name, output);
        return end;
    }
    return isToRun ? Ask(plan, output) : end;
}

}  // namespace

int RunHunt(const HuntOptions& options) {
    if (options.rules.empty()) {
        Say("hunt: files or folders of rules are expected");
        return exitCode::usage;
    }
    Preparing preparing(std::in_place);
    GivenRules given;
    std::string problem;
    if (!ReadGivenRules(options, &given, &problem)) {
        Say(problem);
        return exitCode::usage;
    }
    Output output;
    return output.Finish(RunRules(options, given, preparing, output));
}

}  // namespace zel
