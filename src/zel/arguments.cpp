#include "arguments.h"

#include <CLI/CLI.hpp>

namespace zel {

namespace {

const CLI::Validator& NotEmpty() {
    static const CLI::Validator validator(
        [](std::string& text) {
            return text.empty() ? std::string("must not be empty") : std::string();
        },
        "");
    return validator;
}

CLI::Option* AddText(CLI::App& command, const char* name, std::string& text, const char* kind,
                     const char* help) {
    return command.add_option(name, text, help)->check(NotEmpty())->type_name(kind);
}

// May be given several times, with one value each.
// May be given several times, with one value each.
void AddTexts(CLI::App& command, const char* name, std::vector<std::string>& texts,
              const char* kind, const char* help) {
    command.add_option(name, texts, help)
        ->allow_extra_args(false)
        ->check(NotEmpty())
        ->type_name(kind);
}

void AddConditions(CLI::App& command, QueryOptions& options) {
    AddTexts(command, "--action", options.actions, "NAME", "Such as create, launch, connect");
    AddTexts(command, "--object", options.objects, "KIND", "Kind of target, such as file, process");
    AddTexts(command, "--actor-path", options.actorPaths, "PATH",
             "Path of the acting process; * and ? stand for any characters");
    AddTexts(command, "--target-path", options.targetPaths, "PATH",
             "Path or name of the target, likewise");
    AddTexts(command, "--pattern", options.patterns, "REGEX",
             "Regular expression for the whole path or name of the target (Perl syntax)");
    AddTexts(command, "--hash", options.hashes, "SHA2", "SHA-2 of the actor or of the target");
    AddTexts(command, "--ip", options.ips, "ADDRESS",
             "Either address of a connection; * and ? as above");
    AddTexts(command, "--correlation", options.correlations, "UID", "Correlation identifier");
    AddTexts(command, "--type-id", options.typeIds, "NUMBER",
             "Number of the event type, such as 8001");
}

void AddTimes(CLI::App& command, QueryOptions& options) {
    AddText(command, "--since", options.since, "TIME",
            "First time: 2026-11-12T10:00:00Z, 2026-11-12, today, -2h");
    AddText(command, "--until", options.until, "TIME", "Last time, in the same forms");
    command
        .add_option_function<std::string>(
            "--by", [&options](const std::string& by) { options.byReceive = by == "receive"; },
            "Walk events by their own time (event), or by when the store received them (receive)")
        ->check(CLI::IsMember({"event", "receive"}))
        ->type_name("TIME");
    AddText(command, "--after-cursor", options.afterCursor, "POSITION",
            "With --by receive: go on behind the position that --show-cursor told");
}

void AddOutput(CLI::App& command, std::string& output) {
    command.add_option("-o,--output", output, "table, or json; by default a table on a terminal")
        ->check(CLI::IsMember({"table", "json"}));
}

}  // namespace

void AddQuery(CLI::App& app, QueryOptions& options) {
    CLI::App& command = *app.add_subcommand("query", "Print events");
    command.footer(
        "Several values of one flag are alternatives; all flags that are given have to fit.\n"
        "Letter case does not matter. docs/query.md tells the rest.");
    CLI::Option* const document =
        AddText(command, "DOCUMENT", options.document, "",
                "An event_query document in place of the flags, or - for standard input");
    AddTimes(command, options);
    AddConditions(command, options);
    AddText(command, "--limit", options.limit, "NUMBER", "Most results");
    command.add_flag("--enrichments", options.enrichments, "Join the enrichments to each event");
    command.add_flag("--no-live-enriched", options.noLiveEnriched,
                     "Leave out events that have a live enrichment");
    const std::vector<CLI::Option*> asking = command.get_options(
        [document](const CLI::Option* o) { return o != document && o->get_name() != "--help"; });
    command.parse_complete_callback([asking, document] {
        for (const CLI::Option* const option : asking)
            if (option->count() != 0 && document->count() != 0)
                throw CLI::ExcludesError(option->get_name(), "DOCUMENT");
    });
    AddText(command, "--machine", options.machine, "FILE",
            "The machine that paths are meant for, as `machine show` prints one; else this one");
    command.add_flag("--show-cursor", options.showCursor,
                     "Tell the position of the last row at the end, on stderr");
    command.add_flag("--explain", options.explain, "Print the document and run nothing");
    command
        .add_option("-o,--output", options.output,
                    "ndjson, json or table; without it table on a terminal, else ndjson")
        ->check(CLI::IsMember({"ndjson", "json", "table"}))
        ->type_name("FORM");
}

void AddEnrich(CLI::App& app, EnrichOptions& options) {
    CLI::App& command = *app.add_subcommand("enrich", "Store enrichments for events");
    command.footer(
        "Without --ndjson: KEY is an event's key as `ingest --print-keys` writes it, FILE holds\n"
        "one JSON value. With it: FILE holds lines {\"key\":\"...\",\"enrichment\":...}.");
    AddText(command, "KEY", options.key, "", "Key of an event; not with --ndjson");
    AddText(command, "FILE", options.file, "", "What to store; - or none: standard input");
    CLI::Option* const live =
        command.add_flag("--live", options.live, "Of the kind that --no-live-enriched leaves out");
    command
        .add_flag_callback(
            "--silent", [] {}, "Of the other kind; this is the default")
        ->excludes(live);
    command.add_flag("--ndjson", options.ndjson, "Many, one on each line");
}

void AddIngest(CLI::App& app, IngestOptions& options) {
    CLI::App& command = *app.add_subcommand("ingest", "Store event records, one JSON text a line");
    command.add_option("FILE", options.files,
                       "Files, plain or packed with gzip or xz; - or none: standard input");
    command.add_flag("--print-keys", options.printKeys, "Write each record's key to stdout");
    command.add_flag("!--no-receive-rows", options.receiveRows,
                     "Store no receive-time rows beside the records");
    command.add_flag("--live", options.live, "Write records within ten seconds");
    command.add_flag("--follow", options.follow,
                     "Live; print each event once it is on the disk, across runs of the program");
    command.add_option("--position", options.position,
                       "The file that keeps how far --follow is (in the store: zel.position)");
}

void AddPurge(CLI::App& app, PurgeOptions& options) {
    CLI::App& command = *app.add_subcommand("purge", "Delete the oldest folders to fit a size");
    command.add_option("--max-size", options.maxSize, "Such as 500M, 2G, or 0 for all that may go")
        ->required();
    command.add_flag("--dry-run", options.dryRun, "Tell what would go and delete nothing");
    AddOutput(command, options.output);
}

void AddInfo(CLI::App& app, InfoOptions& options) {
    CLI::App& command = *app.add_subcommand("info", "Tell what the store holds");
    command.add_flag("--check", options.check, "Read all of every database and tell damage");
    AddOutput(command, options.output);
}

void AddMonitor(CLI::App& app, MonitorOptions& options) {
    CLI::App& command = *app.add_subcommand("monitor", "Tell when disk space runs short");
    command.add_flag("--once", options.once, "Tell how it is now and end");
    command.add_option("--stop-below", options.stopBelow,
                       "Megabytes (1,000,000 bytes) below which to stop; kept in the settings");
    command.add_option("--resume-percent", options.resumePercentage,
                       "Percent above that from which to resume; kept in the settings");
    AddOutput(command, options.output);
}

void AddSettings(CLI::App& app, SettingsOptions& options) {
    CLI::App& command = *app.add_subcommand("settings", "Read or write a setting");
    command.require_subcommand(1);
    for (const char* name : {"get", "set"}) {
        CLI::App& action = *command.add_subcommand(name);
        action.add_option("KEY", options.key, "Such as ZEL\\Settings\\FDR")->required();
        action.add_option("NAME", options.name, "Such as MAX_INCOMING_QUEUE_LENGTH")->required();
        if (std::string(name) == "set")
            action.add_option("VALUE", options.value, "0 to 4294967295")->required();
    }
}

void AddMachine(CLI::App& app, MachineOptions& options) {
    CLI::App& command = *app.add_subcommand("machine", "The machine that paths are meant for");
    command.require_subcommand(1);
    CLI::App& show = *command.add_subcommand("show", "Describe this machine as JSON");
    show.add_option("--machine", options.file, "A described machine in place of this one");
}

}  // namespace zel
