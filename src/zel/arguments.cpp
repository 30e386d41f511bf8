#include "zel/arguments.h"

#include <CLI/CLI.hpp>

#include "zel/argumentkinds.h"
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

// For the commands that print one table.
void AddOutput(CLI::App& command, std::string& output) {
    command.add_option("-o,--output", output, "By default table on a terminal, else json")
        ->check(CLI::IsMember({"table", "json"}))
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

void AddServe(CLI::App& command, Run& run) {
    ServeOptions& options = OptionsOf(command, run, RunServe);
    options.readParameters = ReadQueryParameters;
    AddText(command, "--config", options.config, "FILE",
            "The configuration; by default /etc/zel/zel.toml");
    command.add_flag("--check", options.check, "Look at the configuration and end");
    AddTexts(command, "--tail", options.tails, "FILE",
             "Take the lines of a file that grows, beside those of tail.files");
    command.add_option("--web", options.webPort, "Serve the page, by default at the port 9517")
        ->expected(0, 1)
        ->default_str(defaultWebPort)
        ->type_name("[PORT]");
    command.add_flag("--stdin", options.readsInput,
                     "Take the lines of standard input, and end when it does");
}

void AddWeb(CLI::App& command, Run& run) {
    WebOptions& options = OptionsOf(command, run, RunWeb);
    options.readParameters = ReadQueryParameters;
    command.footer(
        "Without --store: the page of the agent, which serves it with web.port or --web.");
    command.add_flag("--no-open", options.noOpen, "Print the link, and start no browser");
}

void AddAudisp(CLI::App& command, Run& run) {
    AudispOptions& options = OptionsOf(command, run, RunAudisp);
    command.add_option("--queue", options.queueMegabytes, "How much may wait for the service")
        ->check(CLI::Range(1, 4096))
        ->type_name("MEGABYTES");
}

void AddStatus(CLI::App& command, Run& run) {
    StatusOptions& options = OptionsOf(command, run, RunStatus);
    command.add_flag("--watch", options.watch, "Print it anew every two seconds");
    AddOutput(command, options.output);
}

void AddConfig(CLI::App& command, Run& run) {
    command.require_subcommand(1);
    CLI::App& show = *command.add_subcommand("show", "Print all values that `serve` would use");
    ServeOptions& options = OptionsOf(show, run, RunConfigShow);
    AddText(show, "--config", options.config, "FILE",
            "The configuration; without one the defaults");
}

void AddMachine(CLI::App& command, Run& run) {
    command.require_subcommand(1);
    CLI::App& show = *command.add_subcommand("show", "Describe this machine as JSON");
    MachineOptions& options = OptionsOf(show, run, RunMachineShow);
    show.add_option("--machine", options.file,
                    "Print what a description says in place of this machine")
        ->type_name("FILE");
}

void AddServer(CLI::App& command, FleetOptions& options) {
    command.add_option("URL", options.url, "http[s]://[USER@]HOST[:PORT][/DATABASE]")->required();
    AddText(command, "--fleet-password", options.passwordFile, "FILE",
            "The file whose first line is the password; else $ZEL_FLEET_PASSWORD");
}

void AddTables(CLI::App& command, FleetOptions& options) {
    AddText(command, "--cluster", options.cluster, "NAME",
            "Replicated tables on all nodes of this cluster, and distributed ones over them");
    command.add_option("--retention", options.retentionDays, "How long rows stay; 0: for ever")
        ->type_name("DAYS");
}

void AddSending(CLI::App& command, FleetOptions& options) {
    AddServer(command, options);
    AddText(command, "--host", options.host, "NAME",
            "Send as this host; by default as what stays of this machine's identifier");
    AddText(command, "--position", options.position, "FILE",
            "The file that keeps how far the fleet is; by default one in the store");
    command.add_option("--batch-rows", options.batchRows, "Rows of one request")
        ->check(CLI::Range(1, 1000000))
        ->type_name("NUMBER");
    command.add_option("--batch-size", options.batchBytes, "Bytes of one request, unpacked")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::size_t{1024}, std::size_t{1} << 30))
        ->type_name("SIZE");
    command.add_option("--rate", options.rate, "Rows a second, at most")->type_name("NUMBER");
    command
        .add_option("--first-pause", options.firstPauseMs,
                    "Milliseconds ahead of a second try; each further one waits twice as long")
        ->type_name("MS");
}

void AddFleet(CLI::App& command, Run& run) {
    command.require_subcommand(1);
    CLI::App& schema = *command.add_subcommand("schema", "Print what makes the tables");
    FleetOptions& printed = OptionsOf(schema, run, RunFleetSchema);
    AddText(schema, "--clickhouse-version", printed.serverVersion, "VERSION",
            "That of the server, such as 18.16; by default a new one");
    AddTables(schema, printed);
    CLI::App& init = *command.add_subcommand("init", "Make the tables");
    FleetOptions& made = OptionsOf(init, run, RunFleetInit);
    AddServer(init, made);
    AddTables(init, made);
    CLI::App& check = *command.add_subcommand("check", "Tell what the tables lack");
    AddServer(check, OptionsOf(check, run, RunFleetCheck));
    CLI::App& send = *command.add_subcommand("send", "Send what the fleet does not have");
    FleetOptions& sent = OptionsOf(send, run, RunFleetSend);
    AddSending(send, sent);
    AddText(send, "--since", sent.since, "TIME", "Begin with what was received then, once more");
    send.add_flag("--follow", sent.follow, "Go on with what comes");
    send.add_option("--every", sent.everySeconds, "Seconds between two looks")
        ->check(CLI::Range(1, 86400))
        ->type_name("SECONDS");
    send.add_option(
            "--settling", sent.settlingSeconds,
            "Rows that are younger are sent, and sent again the next time, since others may "
            "still come ahead of them; by default 120")
        ->type_name("SECONDS");
    CLI::App& fill = *command.add_subcommand("backfill", "Send events by their own times");
    FleetOptions& filled = OptionsOf(fill, run, RunFleetBackfill);
    AddSending(fill, filled);
    AddText(fill, "--since", filled.since, "TIME", "Only events that began then or later");
    AddText(fill, "--until", filled.until, "TIME", "Only events that began then or earlier");
}

constexpr struct {
    const char* name;
    const char* help;
    void (*add)(CLI::App& command, Run& run);
} rows[] = {
    {"ingest", "Store events of files", AddIngest},
    {"query", "Print events", AddQuery},
    {"follow", "Print events as the agent accepts them", AddFollow},
    {"hunt", "Print events that Sigma rules fit", AddHunt},
    {"sql", "Ask in SQL", AddSql},
    {"tree", "Print a process with its ancestors and descendants", AddTree},
    {"enrich", "Store enrichments for events", AddEnrich},
    {"purge", "Delete the oldest folders to fit a size", AddPurge},
    {"info", "Tell what the store holds", AddInfo},
    {"monitor", "Tell when disk space runs short", AddMonitor},
    {"settings", "Read or write a setting", AddSettings},
    {"serve", "Run the store as a service", AddServe},
    {"web", "Show the store in the browser", AddWeb},
    {"fleet", "Send events to ClickHouse, where many machines are asked at once", AddFleet},
    {"audisp", "Bring audit records to the service, as a plugin of auditd", AddAudisp},
    {"status", "Tell how the service is", AddStatus},
    {"config", "The configuration of the service", AddConfig},
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
