#include <CLI/CLI.hpp>
#include <functional>

#include "arguments.h"
#include "commands.h"
#include "messages.h"
#include "output.h"
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

int Run(const CLI::App& app, const IngestOptions& ingest, const QueryOptions& query,
        const EnrichOptions& enrich, const SettingsOptions& settings) {
    if (app.got_subcommand("ingest"))
        return RunIngest(ingest);
    if (app.got_subcommand("query"))
        return RunQuery(query);
    if (app.got_subcommand("enrich"))
        return RunEnrich(enrich);
    const bool isSet = app.get_subcommand("settings")->got_subcommand("set");
    return isSet ? RunSettingsSet(settings) : RunSettingsGet(settings);
}

}  // namespace

int main(int argc, char** argv) {
    OccupyStandardDescriptors();
    CLI::App app("zel: the local store of security events", "zel");
    app.require_subcommand(1);
    app.set_version_flag("--version", ZEL_VERSION);
    GlobalOptions global;
    app.add_option("--store", global.store, "The store's directory")->envname("ZEL_STORE");
    app.add_option("--config", global.config, "A file with path tokens (ZELDataStore=DIR)");
    app.add_flag("-v,--verbose", global.verbose, "Tell what the store reports");
    IngestOptions ingest;
    QueryOptions query;
    EnrichOptions enrich;
    SettingsOptions settings;
    AddIngest(app, ingest);
    AddQuery(app, query);
    AddEnrich(app, enrich);
    AddSettings(app, settings);
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
        return Run(app, ingest, query, enrich, settings);
    } catch (const std::exception& error) {
        Say(std::string("failed: ") + error.what());
        return exitCode::noStore;
    }
}
