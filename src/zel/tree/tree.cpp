#include <unistd.h>

#include <charconv>

#include "connection/agentrequest.h"
#include "connection/resultwords.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/query/querydocument.h"
#include "zel/query/walk.h"
#include "zel/results/resultform.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/output.h"
#include "zel/tree/treeform.h"

// The tree around a process. One walk over the launches and ends of processes, which keys decide,
// fills a table of who began whom; the tree is looked up in that. Where a key was given, its event
// is looked for first, to know which process is meant.

namespace zel {

namespace {

using ZEL::HRESULT;

// Keeps what was found in a table.
class ProcessIntake final : public EventSink {
public:
    bool Take(const FoundEvent& event) override {
        if (!reader_.Read(event.text)) {
            ++unreadable_;
            return true;
        }
        isFull_ = !table.Add(reader_);
        return !isFull_;
    }
    bool Finish() override { return true; }

    // False when something is missing.
    bool Tell() const {
        if (isFull_)
            Say("there are more launches than fit into memory; the tree holds those that were read "
                "first. --since and --until leave fewer");
        if (unreadable_ != 0)
            Say(std::to_string(unreadable_) + " event(s) could not be read: they are no JSON");
        return !isFull_ && unreadable_ == 0;
    }
    bool IsFull() const noexcept { return isFull_; }

    ProcessTable table;

private:
    RecordReader reader_;
    bool isFull_ = false;
    std::uint64_t unreadable_ = 0;
};

// Keeps the one event.
class OneEvent final : public EventSink {
public:
    bool Take(const FoundEvent& event) override {
        text = event.text;
        return true;
    }
    bool Finish() override { return true; }
    std::string text;
};

std::optional<std::uint64_t> PidIn(const std::string& text) {
    std::uint64_t pid = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), pid);
    const bool isAll = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    return isAll ? std::optional(pid) : std::nullopt;
}

struct TreeQuestion {
    web::json::value launches;
    web::json::value event;  // where a key was given
};

bool ReadQuestion(const TreeOptions& options, TreeQuestion* question, std::string* problem) {
    if (options.process.empty() == options.key.empty()) {
        *problem = "tree: either the number or the identifier of a process is expected, or --key";
        return false;
    }
    QueryOptions launches;
    launches.objects = {"process"};
    launches.actions = {"launch", "terminate"};
    launches.since = options.since;
    launches.until = options.until;
    launches.day = options.day;
    QueryOptions event;
    event.key = options.key;
    return BuildDocument(launches, &question->launches, problem) &&
           (options.key.empty() || BuildDocument(event, &question->event, problem));
}

class TreeRun {
public:
    TreeRun(const TreeOptions& options, StoreSession& store) : options_(options), store_(store) {}

    int Run(const TreeQuestion& question, Output& output);

private:
    // False when the program is to end; `end_` says how.
    bool Ask(const web::json::value& document, const std::string& key, EventSink& sink);
    std::vector<std::uint32_t> Find();
    void Print(const std::vector<std::uint32_t>& found, Output& output);

    const TreeOptions& options_;
    StoreSession& store_;
    ProcessIntake processes_;
    OneEvent event_;
    bool isWhole_ = true;
    int end_ = exitCode::done;
};

bool TreeRun::Ask(const web::json::value& document, const std::string& key, EventSink& sink) {
    const QueryPlan plan = PlanQuery(document);
    LostRows lostRows;
    ResultIntake intake(sink, nullptr, plan, {true, ResultIntake::Wanted::none, -1, key}, *store_);
    const HRESULT result = Walk(plan, -1, store_, intake, lostRows);
    if (Interrupted()) {
        end_ = exitCode::interrupted;
        return false;
    }
    if (intake.HasEnough() || processes_.IsFull()) {
        ZEL::IgnoreResult(store_->ClearDatabaseErrors(), "the walk was stopped, which is none");
        for (const DatabaseError& failure : intake.FailuresSoFar())
            Say(failure.Text());
        isWhole_ = intake.FailuresSoFar().empty() && isWhole_;
    } else {
        const bool allTested = lostRows.Tell();
        isWhole_ = store_.TellDatabaseErrors() == 0 && allTested && isWhole_;
        if (Failed(result)) {
            Say("the query failed: " + Describe(static_cast<std::int32_t>(result)));
            end_ = IsAgentOut(result) ? exitCode::noStore : exitCode::losses;
            return false;
        }
    }
    return true;
}

std::vector<std::uint32_t> TreeRun::Find() {
    const ProcessTable& table = processes_.table;
    if (!options_.key.empty()) {
        RecordReader event;
        const auto found = event.Read(event_.text) ? table.Of(event) : std::nullopt;
        return found ? std::vector{*found} : std::vector<std::uint32_t>();
    }
    const auto pid = PidIn(options_.process);
    const auto found = table.WithUid(options_.process);
    return found.empty() && pid ? table.WithPid(*pid) : found;
}

void TreeRun::Print(const std::vector<std::uint32_t>& found, Output& output) {
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    const std::string form = !options_.output.empty() ? options_.output
                             : isTerminal             ? "tree"
                                                      : "ndjson";
    const ProcessTable& table = processes_.table;
    const char* separator = form == "json" ? "[\n" : "";
    for (const std::uint32_t node : found) {
        if (Interrupted() || !output.Flush())
            return;
        const std::vector<TreeLine> tree = TreeOf(table, node);
        output.Write(separator);
        output.Write(form == "json"   ? TreeAsJson(table, tree)
                     : form == "tree" ? DrawnTree(table, tree, TerminalColumns())
                                      : TreeAsLines(table, tree));
        separator = form == "json" ? ",\n" : form == "tree" ? "\n" : "";
    }
    if (form == "json")
        output.Write(found.empty() ? "[]\n" : "\n]\n");
}

int TreeRun::Run(const TreeQuestion& question, Output& output) {
    if (!options_.key.empty() && !Ask(question.event, options_.key, event_))
        return end_;
    const bool isThere = options_.key.empty() || !event_.text.empty();
    if (isThere && !Ask(question.launches, "", processes_))
        return end_;
    processes_.table.Link();
    const std::vector<std::uint32_t> found = isThere ? Find() : std::vector<std::uint32_t>();
    Print(found, output);
    if (Interrupted())
        return exitCode::interrupted;
    if (found.size() > 1)
        Say("that number was used by " + std::to_string(found.size()) +
            " processes; the identifier of one, or --since and --until, choose");
    const bool isWhole = processes_.Tell() && isWhole_;
    if (!isWhole)
        return exitCode::losses;
    if (found.empty() && TalksToTerminal())
        Say(isThere ? "no launch of that process, nor by it, is among the events"
                    : "there is no event with that key");
    return found.empty() ? exitCode::nothingFound : exitCode::done;
}

}  // namespace

int RunTree(const TreeOptions& options) {
    TreeQuestion question;
    std::string problem;
    if (!ReadQuestion(options, &question, &problem)) {
        Say(problem);
        return exitCode::usage;
    }
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::reading))
        return exitCode::noStore;
    Output output;
    return output.Finish(TreeRun(options, store).Run(question, output));
}

}  // namespace zel
