#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <utility>
#include <vector>

#include "connection/storesession.h"
#include "zel/arguments.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/output.h"

namespace {

using namespace zel;

// What each command is given, and how it is run.
struct Commands {
    IngestOptions ingest;
    QueryOptions query;
    EnrichOptions enrich;
    PurgeOptions purge;
    InfoOptions info;
    MonitorOptions monitor;
    SettingsOptions settings;
    MachineOptions machine;

    explicit Commands(CLI::App& app) {
        AddIngest(app, ingest);
        AddQuery(app, query);
        AddEnrich(app, enrich);
        AddPurge(app, purge);
        AddInfo(app, info);
        AddMonitor(app, monitor);
        AddSettings(app, settings);
        AddMachine(app, machine);
    }

    int Run(const CLI::App& app) const {
        const std::pair<const char*, std::function<int()>> rows[] = {
            {"ingest", [this] { return RunIngest(ingest); }},
            {"query", [this] { return RunQuery(query); }},
            {"enrich", [this] { return RunEnrich(enrich); }},
            {"purge", [this] { return RunPurge(purge); }},
            {"info", [this] { return RunInfo(info); }},
            {"monitor", [this] { return RunMonitor(monitor); }},
            {"machine", [this] { return RunMachineShow(machine); }},
        };
        for (const auto& [name, run] : rows)
            if (app.got_subcommand(name))
                return run();
        const bool isSet = app.get_subcommand("settings")->got_subcommand("set");
        return isSet ? RunSettingsSet(settings) : RunSettingsGet(settings);
    }
};

}  // namespace

int main(int argc, char** argv) {
    OccupyStandardDescriptors();
    CLI::App app("zel: the local store of security events", "zel");
    app.require_subcommand(1);
    app.set_version_flag("--version", "zel " ZEL_VERSION);
    GlobalOptions global;
    app.add_option("--store", global.store, "The store's directory")
        ->envname("ZEL_STORE")
        ->type_name("DIR");
    app.add_option("--config", global.config,
                   "A file that names directories, such as ZELDataStore=DIR")
        ->type_name("FILE");
    app.add_flag("-v,--verbose", global.verbose, "Tell what the store reports");
    const Commands commands(app);
    app.footer(
        "These options stand ahead of the command: zel --store DIR query --since today.\n"
        "`zel COMMAND --help` tells those of a command, zel(1) all of them.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? exitCode::done : exitCode::usage;
    }
    WatchInterrupts();
    try {
        return ApplyOptions(global) ? FinishStdout(commands.Run(app)) : exitCode::usage;
    } catch (const std::exception& error) {
        Say(std::string("failed: ") + error.what());
        return exitCode::noStore;
    }
}
