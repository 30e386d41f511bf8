#include <CLI/CLI.hpp>
#include <functional>

#include "commands.h"
#include "messages.h"
#include "storesession.h"

namespace {

using namespace zel;

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

void AddQuery(CLI::App& app, QueryOptions& options) {
    CLI::App& command = *app.add_subcommand("query", "Print events, one JSON text a line");
    command.add_option("DOCUMENT", options.document,
                       "An event_query document, or - for standard input");
    command.add_option("--since", options.since,
                       "First time: 2026-11-12T10:00:00Z, 2026-11-12, today, -2h");
    command.add_option("--until", options.until, "Last time, in the same forms");
    command.add_option("--limit", options.limit, "Most results")->check(CLI::PositiveNumber);
    command.add_flag("--explain", options.explain, "Print the document and run nothing");
    command.add_option("-o,--output", options.output, "Form of the results")
        ->check(CLI::IsMember({"ndjson", "json"}))
        ->capture_default_str();
}

void AddOutput(CLI::App& command, std::string& output) {
    command.add_option("-o,--output", output, "table, or json; by default a table on a terminal")
        ->check(CLI::IsMember({"table", "json"}));
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
    command.add_flag("--check", options.check, "Open every event database and tell what fails");
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

int Run(const CLI::App& app, const IngestOptions& ingest, const QueryOptions& query,
        const SettingsOptions& settings, const MachineOptions& machine) {
    if (app.got_subcommand("ingest"))
        return RunIngest(ingest);
    if (app.got_subcommand("query"))
        return RunQuery(query);
    if (app.got_subcommand("machine"))
        return RunMachineShow(machine);
    const bool isSet = app.get_subcommand("settings")->got_subcommand("set");
    return isSet ? RunSettingsSet(settings) : RunSettingsGet(settings);
}

}  // namespace

int main(int argc, char** argv) {
    if (!HasStandardStreams())
        return exitCode::noStore;
    CLI::App app("zel: the local store of security events", "zel");
    app.require_subcommand(1);
    app.set_version_flag("--version", ZEL_VERSION);
    GlobalOptions global;
    app.add_option("--store", global.store, "The store's directory")->envname("ZEL_STORE");
    app.add_option("--config", global.config, "A file with path tokens (ZELDataStore=DIR)");
    app.add_flag("-v,--verbose", global.verbose, "Tell what the store reports");
    IngestOptions ingest;
    QueryOptions query;
    SettingsOptions settings;
    PurgeOptions purge;
    InfoOptions info;
    MonitorOptions monitor;
    MachineOptions machine;
    AddIngest(app, ingest);
    AddQuery(app, query);
    AddPurge(app, purge);
    AddInfo(app, info);
    AddMonitor(app, monitor);
    AddSettings(app, settings);
    AddMachine(app, machine);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? exitCode::done : exitCode::usage;
    }
    WatchInterrupts();
    try {
        if (!ApplyOptions(global))
            return exitCode::usage;
        if (app.got_subcommand("purge"))
            return RunPurge(purge);
        if (app.got_subcommand("info"))
            return RunInfo(info);
        if (app.got_subcommand("monitor"))
            return RunMonitor(monitor);
        return Run(app, ingest, query, settings, machine);
    } catch (const std::exception& error) {
        Say(std::string("failed: ") + error.what());
        return exitCode::noStore;
    }
}
