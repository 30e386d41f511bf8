#include "zel/arguments.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "zel/commands.h"
#include "zel/terminal/textfit.h"

// All that the command line knows. A command is one row of the table at the end and one function
// that gives it its flags; its options (commands.h) are made when it is added and live as long as
// what is to be run holds them. Global flags are taken anywhere: what a command does not know falls
// through to the program.
//
// The library checks what a flag looks like, the command what its value means: a time, a size or a
// pattern is refused by the code that knows them, with the place of the mistake. Where two flags
// exclude each other and both belong to one command, it is stated here if the library can say it
// in general terms.
namespace zel {

namespace {

// An empty value is mostly a shell variable that was not set. Commands take an empty text for a
// flag that is absent, so it would widen the question without a word.
const CLI::Validator& NotEmpty() {
    static const CLI::Validator validator(
        [](std::string& text) {
            return text.empty() ? std::string("must not be empty") : std::string();
        },
        "");
    return validator;
}

// Options for the command's flags to fill; when the command is given, `run` becomes `what` with
// them.
template <typename Options>
Options& OptionsOf(CLI::App& command, Run& run, int (*what)(const Options&)) {
    auto options = std::make_shared<Options>();
    command.callback([options, what, &run] { run = [options, what] { return what(*options); }; });
    return *options;
}

// May be given once: the library refuses a second.
CLI::Option* AddText(CLI::App& command, const char* name, std::string& text, const char* kind,
                     const char* help) {
    return command.add_option(name, text, help)->check(NotEmpty())->type_name(kind);
}

// May be given several times, with one value each, so that a flag does not swallow the DOCUMENT
// behind it.
void AddTexts(CLI::App& command, const char* name, std::vector<std::string>& texts,
              const char* kind, const char* help) {
    command.add_option(name, texts, help)
        ->allow_extra_args(false)
        ->check(NotEmpty())
        ->type_name(kind);
}

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
    AddText(command, "--key", options.key, "KEY",
            "The one event with this key, as --with-key and --print-keys tell it");
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

// For the commands that print one table.
void AddOutput(CLI::App& command, std::string& output) {
    command.add_option("-o,--output", output, "By default table on a terminal, else json")
        ->check(CLI::IsMember({"table", "json"}))
        ->type_name("FORM");
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

void AddQuery(CLI::App& command, Run& run) {
    QueryOptions& options = OptionsOf(command, run, RunQuery);
    command.footer(
        "Several values of one flag are alternatives; all flags that are given have to fit.\n"
        "Letter case does not matter. docs/query.md tells the rest.");
    CLI::Option* const document =
        AddText(command, "DOCUMENT", options.document, "",
                "An event_query document in place of the flags: JSON, a file, or - for standard "
                "input");
    AddTimes(command, options);
    AddConditions(command, options);
    AddText(command, "--limit", options.limit, "NUMBER", "Print at most so many events");
    command.add_flag("--enrichments", options.enrichments, "Join the enrichments to each event");
    command.add_flag("--no-live-enriched", options.noLiveEnriched,
                     "Leave out events that have a live enrichment");
    // What asks something, as it stands so far: flags that are added below say how the answer
    // looks, and suit a document as well.
    const std::vector<CLI::Option*> asking = command.get_options(
        [document](const CLI::Option* o) { return o != document && o->get_name() != "--help"; });
    command.parse_complete_callback([asking, document] {
        for (const CLI::Option* const option : asking)
            if (option->count() != 0 && document->count() != 0)
                throw CLI::ExcludesError(option->get_name(), "DOCUMENT");
    });
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

void AddEnrich(CLI::App& command, Run& run) {
    EnrichOptions& options = OptionsOf(command, run, RunEnrich);
    command.footer(
        "Without --ndjson: KEY is an event's key as `query --print-keys` writes it, FILE holds\n"
        "one JSON value. With it: FILE holds lines {\"key\":\"...\",\"enrichment\":...}.");
    AddText(command, "KEY", options.key, "", "Key of an event; not with --ndjson");
    AddText(command, "FILE", options.file, "", "What to store; - or none: standard input");
    CLI::Option* const live = command.add_flag(
        "--live", options.live, "Live: `query --no-live-enriched` leaves the event out");
    command
        // For scripts that say what they mean; nothing to remember, since it is what happens
        // without a flag.
        .add_flag_callback(
            "--silent", [] {}, "Silent, and so of no effect on that; this is the default")
        ->excludes(live);
    command.add_flag("--ndjson", options.ndjson, "Many enrichments, one on each line of FILE");
}

void AddIngest(CLI::App& command, Run& run) {
    IngestOptions& options = OptionsOf(command, run, RunIngest);
    command
        .add_option(
            "FILE", options.files,
            "Files of events, also packed (gz, xz, zst) or in archives (zip, tar); - or none: "
            "standard input")
        ->type_name("");
    AddText(command, "--format", options.format, "NAME",
            "Read all as this format, such as windows-json; by default it is found");
    command.add_flag("--keep-unmapped", options.keepsUnmapped,
                     "Store events that no rule makes a record of, as etw events");
    command
        .add_flag_callback(
            "--no-unmapped", [&options] { options.writesUnmapped = false; },
            "Leave out of records what has no place in them, and where they came from")
        ->excludes("--keep-unmapped");
    command.add_flag("--recover", options.recovers,
                     "Search damaged event logs for events that are in no list");
    command.add_flag("--print-keys", options.printKeys, "Write each record's key to stdout");
    CLI::Option* const keysOnly = command.add_flag(
        "--keys-only", options.keysOnly, "Write each record's key to stdout, and store nothing");
    command.add_flag("--new", options.makesStore,
                     "Make a store also in a directory that holds other things");
    command.add_flag_callback(
        "--no-receive-rows", [&options] { options.receiveRows = false; },
        "Store no receive-time rows, which `query --by receive` and --follow need");
    command.add_flag("--live", options.live, "Bring records to the disk within ten seconds")
        ->excludes(keysOnly);
    command
        .add_flag(
            "--follow", options.follow,
            "As --live, and print each event once it is on the disk; the next run goes on there")
        ->excludes(keysOnly);
    command
        .add_option("--position", options.position,
                    "The file that keeps how far --follow is; by default zel.position in the store")
        ->type_name("FILE");
}

void AddPurge(CLI::App& command, Run& run) {
    PurgeOptions& options = OptionsOf(command, run, RunPurge);
    command
        .add_option("--max-size", options.maxSize,
                    "Such as 500M or 2G (M is 1,048,576 bytes); 0 for all that may go")
        ->required()
        ->type_name("SIZE");
    command.add_flag("--dry-run", options.dryRun, "Tell what would go and delete nothing");
    command.add_flag("--including-foreign", options.includingForeign,
                     "Go on where folders that are no databases may go too");
    AddOutput(command, options.output);
}

void AddInfo(CLI::App& command, Run& run) {
    InfoOptions& options = OptionsOf(command, run, RunInfo);
    command.add_flag("--check", options.check, "Read all of every database and tell damage");
    AddOutput(command, options.output);
}

void AddMonitor(CLI::App& command, Run& run) {
    MonitorOptions& options = OptionsOf(command, run, RunMonitor);
    command.add_flag("--once", options.once, "Tell how it is now and end");
    command
        .add_option("--stop-below", options.stopBelow,
                    "Stop with less free space, in units of 1,000,000 bytes")
        ->type_name("MEGABYTES");
    command
        .add_option("--resume-percent", options.resumePercentage,
                    "Resume so far above that, in percent of it")
        ->type_name("PERCENT");
    AddOutput(command, options.output);
}

void AddSettings(CLI::App& command, Run& run) {
    command.require_subcommand(1);
    // All three have a key and a name; `set` has a value besides.
    const auto add = [&](const char* name, const char* help, int (*what)(const SettingsOptions&)) {
        CLI::App& action = *command.add_subcommand(name, help);
        SettingsOptions& options = OptionsOf(action, run, what);
        action.add_option("KEY", options.key, "Such as ZEL\\Settings\\FDR")->required();
        action.add_option("NAME", options.name, "Such as MAX_INCOMING_QUEUE_LENGTH")->required();
        return std::pair<CLI::App&, SettingsOptions&>(action, options);
    };
    add("get", "Print a value", RunSettingsGet);
    auto [set, options] = add("set", "Store a value", RunSettingsSet);
    set.add_option("VALUE", options.value, "0 to 4294967295")->required();
    add("unset", "Take a value out, so that its default holds", RunSettingsUnset);
}

void AddMachine(CLI::App& command, Run& run) {
    command.require_subcommand(1);
    CLI::App& show = *command.add_subcommand("show", "Describe this machine as JSON");
    MachineOptions& options = OptionsOf(show, run, RunMachineShow);
    show.add_option("--machine", options.file,
                    "Print what a description says in place of this machine")
        ->type_name("FILE");
}

constexpr struct {
    const char* name;
    const char* help;
    void (*add)(CLI::App& command, Run& run);
} rows[] = {
    {"ingest", "Store events of files", AddIngest},
    {"query", "Print events", AddQuery},
    {"sql", "Ask in SQL", AddSql},
    {"tree", "Print a process with its ancestors and descendants", AddTree},
    {"enrich", "Store enrichments for events", AddEnrich},
    {"purge", "Delete the oldest folders to fit a size", AddPurge},
    {"info", "Tell what the store holds", AddInfo},
    {"monitor", "Tell when disk space runs short", AddMonitor},
    {"settings", "Read or write a setting", AddSettings},
    {"machine", "The machine that paths are meant for", AddMachine},
};

// The innermost command that was given.
const CLI::App& Given(const CLI::App& app) {
    const auto below = app.get_subcommands();
    return below.empty() ? app : Given(*below.front());
}

// Those of its parents too, since flags of the program may stand anywhere.
std::vector<std::string> FlagsOf(const CLI::App& command) {
    std::vector<std::string> flags;
    for (const CLI::App* app = &command; app != nullptr; app = app->get_parent())
        for (const CLI::Option* const option : app->get_options())
            for (const std::string& name : option->get_lnames())
                flags.push_back("--" + name);
    return flags;
}

std::vector<std::string> CommandsOf(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* const below : command.get_subcommands({}))
        names.push_back(below->get_name());
    return names;
}

}  // namespace

void AddCommands(CLI::App& app, Run& run) {
    app.fallthrough();
    for (const auto& row : rows)
        row.add(*app.add_subcommand(row.name, row.help), run);
}

std::string UnknownWord(const CLI::App& app) {
    const std::vector<std::string> left = app.remaining(true);
    if (left.empty())
        return "";
    const std::string word = left.front().substr(0, left.front().find('='));
    const CLI::App& given = Given(app);
    const bool isFlag = word.starts_with('-');
    const auto known = isFlag ? FlagsOf(given) : CommandsOf(given);
    if (known.empty())
        return "";
    return UnknownName(isFlag ? "flag" : "command", word, {known.begin(), known.end()});
}

}  // namespace zel
