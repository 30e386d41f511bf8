#include <algorithm>

#include "zel/argumentkinds.h"
#include "zel/commands.h"
#include "zel/terminal/textfit.h"

// The flags of the commands that ask.
namespace zel {

namespace {

void AddConditions(CLI::App& command, QueryOptions& options) {
    AddTexts(command, "--action", options.actions, "NAME",
             "What happened, such as create, launch, connect");
    AddTexts(command, "--object", options.objects, "KIND",
             "Kind of the target, such as file, process, network");
    AddTexts(command, "--actor-path", options.actorPaths, "PATH",
             "Path of the acting process; * and ? stand for any characters");
    AddTexts(command, "--target-path", options.targetPaths, "PATH",
             "Path or name of the target; * and ? as above");
    AddTexts(command, "--pattern", options.patterns, "REGEX",
             "Regular expression for the whole path or name of the target (Perl syntax)");
    AddTexts(command, "--hash", options.hashes, "SHA2", "SHA-2 of the actor or of the target");
    AddTexts(command, "--ip", options.ips, "ADDRESS",
             "Either address of a connection; * and ? as above");
    AddTexts(command, "--correlation", options.correlations, "UID", "Correlation identifier");
    AddTexts(command, "--type-id", options.typeIds, "NUMBER",
             "Number of the event type, such as 8001");
    AddTexts(command, "--actor-uid", options.actorUids, "UID",
             "Identifier of the acting process, as its source gave it");
}

// A document takes the place of what asks something, as it stands so far: flags that are added
// behind this say how the answer looks, and suit a document as well.
void LeaveToDocument(CLI::App& command, const CLI::Option* document) {
    const std::vector<CLI::Option*> asking = command.get_options(
        [document](const CLI::Option* o) { return o != document && o->get_name() != "--help"; });
    command.parse_complete_callback([asking, document] {
        for (const CLI::Option* const option : asking)
            if (option->count() != 0 && document->count() != 0)
                throw CLI::ExcludesError(option->get_name(), "DOCUMENT");
    });
}

// What is tested on an event's text suits a document as well as the flags.
void AddTextConditions(CLI::App& command, QueryOptions& options) {
    AddTexts(command, "--where", options.wheres, "CONDITION",
             "COLUMN OP VALUE, with one of = != < <= > >= contains starts ends ~ (regular "
             "expression) in (network); all that are given have to fit");
    AddTexts(command, "--cmd-line", options.cmdLines, "TEXT",
             "Part of the command line of the actor or of the target");
    AddTexts(command, "--user", options.users, "NAME", "User, with or without a domain");
    AddTexts(command, "--computer", options.computers, "NAME", "Machine that it happened on");
    AddTexts(command, "--pid", options.pids, "NUMBER",
             "Number of the acting process or of the target");
    AddTexts(command, "--port", options.ports, "NUMBER", "Either port of a connection");
    AddTexts(command, "--grep", options.greps, "TEXT", "Text anywhere in the event");
}

void AddTimes(CLI::App& command, QueryOptions& options) {
    AddText(command, "--since", options.since, "TIME",
            "First time: 2026-11-12T10:00:00Z, 2026-11-12, today, -2h");
    AddText(command, "--until", options.until, "TIME",
            "Last time, in the same forms; of a date the whole day");
    AddText(command, "--day", options.day, "DATE", "That day from its first moment to its last");
    command
        .add_option_function<std::string>(
            "--by", [&options](const std::string& by) { options.byReceive = by == "receive"; },
            "Order and times: when events happened (event), or when the store received them "
            "(receive)")
        ->check(CLI::IsMember({"event", "receive"}))
        ->type_name("CLOCK");
    AddText(command, "--after-cursor", options.afterCursor, "POSITION",
            "With --by receive: go on behind the position that --show-cursor told");
}

// All that asks something of the keys.
void AddAsking(CLI::App& command, QueryOptions& options) {
    AddTimes(command, options);
    AddConditions(command, options);
    command.add_flag("--enrichments", options.enrichments, "Join the enrichments to each event");
    command.add_flag("--no-live-enriched", options.noLiveEnriched,
                     "Leave out events that have a live enrichment");
}

// How the answer of a query looks; `keys` tells that it is keys alone.
void AddAnswer(CLI::App& command, AnswerOptions& options, CLI::Option* keys) {
    command
        .add_option("-o,--output", options.output,
                    "By default table on a terminal, else ndjson: one JSON text a line")
        ->excludes(keys)
        ->check(CLI::IsMember({"ndjson", "json", "ocsf", "table", "csv", "timesketch"}))
        ->type_name("FORM");
    AddText(command, "-n,--last", options.last, "NUMBER",
            "Print so many of the newest events, the newest first");
    CLI::Option* const sort =
        command.add_flag("--sort", options.sort, "Print the oldest events first, over all folders");
    CLI::Option* const reverse =
        command.add_flag("--reverse", options.reverse, "Print the newest events first");
    sort->excludes(reverse);
    AddText(command, "--fields", options.fields, "LIST",
            "Print these columns alone, such as time,action,target_path; also JSON pointers")
        ->excludes(keys);
    AddText(command, "--count-by", options.countBy, "LIST",
            "Print how many events there are of each value of these columns, such as object,action")
        ->excludes(keys);
    AddText(command, "--histogram", options.histogram, "LENGTH",
            "Print how many events there are in each length of time, such as 15m, 1h, 1d")
        ->excludes(keys);
    command.add_flag("--trailer", options.trailer,
                     "Tell what was looked at, as the last line of ndjson, else on stderr");
    command.add_flag("--no-pager", options.noPager, "Show a long table on a terminal all at once");
    AddText(command, "--tz", options.zone, "ZONE",
            "Print times of this zone, such as Europe/Berlin or local, and read those without one "
            "in it");
}

}  // namespace

void AddQuery(CLI::App& command, Run& run) {
    QueryOptions& options = OptionsOf(command, run, RunQuery);
    command.footer(
        "Several values of one flag are alternatives; all flags that are given have to fit.\n"
        "Letter case does not matter. docs/query.md tells the rest.");
    CLI::Option* const document =
        AddText(command, "DOCUMENT", options.document, "",
                "An event_query document in place of the flags: JSON, a file, or - for standard "
                "input");
    AddAsking(command, options);
    AddText(command, "--key", options.key, "KEY",
            "The one event with this key, as --with-key and --print-keys tell it");
    AddText(command, "--limit", options.limit, "NUMBER", "Print at most so many events");
    LeaveToDocument(command, document);
    AddTextConditions(command, options);
    AddText(command, "--machine", options.machine, "FILE",
            "Read paths as on the machine that FILE describes (`zel machine show` writes one), "
            "not as on this one");
    command.add_flag("--duplicates", options.duplicates,
                     "Print an event as often as it was stored, on whatever days");
    CLI::Option* const keys = command.add_flag("--print-keys", options.printKeys,
                                               "Print keys, as `enrich` takes them, not events");
    command
        .add_flag("--with-key", options.withKey,
                  "Put a member \"key\" in front of those of each event")
        ->excludes(keys);
    command.add_flag("--show-cursor", options.showCursor,
                     "Tell the position of the last row at the end, on stderr");
    command.add_flag("--explain", options.explain,
                     "Print the document that the flags make, and run nothing");
    AddAnswer(command, options.answer, keys);
}

void AddFollow(CLI::App& command, Run& run) {
    FollowOptions& options = OptionsOf(command, run, RunFollow);
    QueryOptions& question = options.question;
    command.footer("Conditions are those of `query`. docs/service.md tells the rest.");
    CLI::Option* const document =
        AddText(command, "DOCUMENT", question.document, "",
                "An event_query document in place of the flags: JSON, a file, or - for standard "
                "input");
    AddConditions(command, question);
    LeaveToDocument(command, document);
    AddTextConditions(command, question);
    AddText(command, "--from", options.from, "POSITION",
            "Where to begin: a position that was told, a time as for --since of `query`, or now");
    AddText(command, "--limit", question.limit, "NUMBER", "End behind so many events");
    command.add_flag("--with-position", options.withPosition,
                     "Put a member \"position\" in front of those of each event");
    command.add_flag("--reconnect", options.reconnects,
                     "When the agent goes away, wait for it and go on where it was");
    command
        .add_option("-o,--output", question.answer.output,
                    "By default table on a terminal, else ndjson: one JSON text a line")
        ->check(CLI::IsMember({"ndjson", "json", "ocsf", "table", "csv", "timesketch"}))
        ->type_name("FORM");
    AddText(command, "--fields", question.answer.fields, "LIST",
            "Print these columns alone, such as time,action,target_path; also JSON pointers");
    AddText(command, "--tz", question.answer.zone, "ZONE",
            "Print times of this zone, such as Europe/Berlin or local, and read those without one "
            "in it");
}

// By the same table as the command line, so that both know and refuse the same.
bool ReadQueryParameters(const std::vector<std::pair<std::string, std::string>>& parameters,
                         ParameterQuestion* question, std::string* problem) {
    QueryOptions options;
    CLI::App command;
    command.set_help_flag();
    AddAsking(command, options);
    AddTextConditions(command, options);
    AddText(command, "--tz", options.answer.zone, "ZONE", "Read times without a zone in this one");
    std::vector<std::string_view> known;
    for (const CLI::Option* const option : command.get_options())
        known.push_back(option->get_lnames().front());
    std::vector<std::string> flags;
    for (const auto& [name, value] : parameters) {
        std::string flag = name;
        std::replace(flag.begin(), flag.end(), '_', '-');
        if (std::find(known.begin(), known.end(), flag) == known.end()) {
            *problem = UnknownName("parameter", name, known);
            return false;
        }
        flags.push_back("--" + flag + (value.empty() ? "" : "=" + value));
    }
    std::reverse(flags.begin(), flags.end());
    try {
        command.parse(std::move(flags));
    } catch (const CLI::ParseError& error) {
        *problem = error.what();
    }
    if (problem->empty())
        AskWithFlags(options, question, problem);
    if (problem->starts_with("--"))
        problem->erase(0, 2);
    return problem->empty();
}

void AddHunt(CLI::App& command, Run& run) {
    HuntOptions& options = OptionsOf(command, run, RunHunt);
    QueryOptions& question = options.question;
    command.footer("docs/hunt.md tells which rules can be asked, and what they mean here.");
    command
        .add_option("RULES", options.rules,
                    "Files of Sigma rules, and folders of such files (.yml, .yaml); - is standard "
                    "input")
        ->check(NotEmpty())
        ->type_name("");
    AddText(command, "--since", question.since, "TIME",
            "First time of the events that are looked at, as for `query`");
    AddText(command, "--until", question.until, "TIME", "Last time, likewise");
    AddText(command, "--day", question.day, "DATE", "That day in place of both");
    AddTextConditions(command, question);
    AddText(command, "--min-level", options.minLevel, "LEVEL",
            "Rules of this level and above: informational, low, medium, high, critical");
    AddTexts(command, "--tag", options.tags, "TAG", "Rules with this tag, such as attack.t1059");
    AddTexts(command, "--status", options.statuses, "STATUS",
             "Rules of this status, such as stable");
    AddText(command, "--placeholders", options.placeholders, "FILE",
            "YAML with the values of %name% in rules");
    command.add_flag("--audit-log", options.asksAuditLog,
                     "Ask Windows' own audit events (4688, 4657, 5156) as well as Sysmon's");
    command.add_flag("--summary", options.summary,
                     "Print how many hits each rule and computer has");
    CLI::Option* const enrich = command.add_flag(
        "--enrich", options.enriches, "Store each hit with its event, as a silent enrichment");
    command
        .add_flag("--check", options.check,
                  "Read and explain rules, and end with 2 when one is bad; no store is needed")
        ->excludes(enrich);
    command
        .add_flag("--explain", options.explain,
                  "Tell of each rule what decides it, and run nothing")
        ->excludes(enrich);
    command.add_flag("--strict", options.strict, "Run nothing when a rule is bad");
    command
        .add_option("-o,--output", options.output,
                    "By default table on a terminal, else ndjson: one hit a line")
        ->check(CLI::IsMember({"ndjson", "json", "table", "csv"}))
        ->type_name("FORM");
    command.add_flag("--no-pager", question.answer.noPager,
                     "Show a long table on a terminal all at once");
    AddText(command, "--tz", question.answer.zone, "ZONE",
            "Print times of this zone in tables, and read those without one in it");
}

void AddSql(CLI::App& command, Run& run) {
    SqlOptions& options = OptionsOf(command, run, RunSql);
    command.footer(
        "Tables: events, folders, enrichments, errors; `zel sql .schema` tells their columns.\n"
        "Without a statement: a shell on a terminal, else what standard input holds.\n"
        "docs/sql.md tells the rest.");
    AddText(command, "STATEMENT", options.statement, "", "SQL, as SQLite takes it; it only reads");
    command
        .add_option("-o,--output", options.output, "By default table on a terminal, else ndjson")
        ->check(CLI::IsMember({"table", "csv", "ndjson"}))
        ->type_name("FORM");
}

void AddTree(CLI::App& command, Run& run) {
    TreeOptions& options = OptionsOf(command, run, RunTree);
    AddText(command, "PROCESS", options.process, "",
            "Number (PID) or identifier (UID) of the process");
    AddText(command, "--key", options.key, "KEY",
            "The process of the event with this key: the one launched, else the one that acted");
    AddText(command, "--since", options.since, "TIME",
            "First time of the events that are looked at, as for `query`");
    AddText(command, "--until", options.until, "TIME", "Last time, likewise");
    AddText(command, "--day", options.day, "DATE", "That day in place of both");
    command
        .add_option("-o,--output", options.output,
                    "By default tree on a terminal, else ndjson: one process a line")
        ->check(CLI::IsMember({"tree", "json", "ndjson"}))
        ->type_name("FORM");
}

}  // namespace zel
