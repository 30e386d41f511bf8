#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>

#include "connection/fleetstore.h"
#include "zel/arguments.h"
#include "zel/evidence/packedstore.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/output.h"

// The program: reads the command line, tells the host services what was named on it, and runs one
// command. What a command gives is the program's end, unless stdout could not take what was
// printed. Exceptions get no further than this file.

namespace {

using namespace zel;

// What is wrong with the command line goes to stderr, help and version to stdout. Help is an answer
// and no failure, so it goes where data goes and ends with 0.
int TellUsage(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0)
        return app.exit(error);
    if (const std::string unknown = UnknownWord(app); !unknown.empty())
        Say(unknown);
    else
        app.exit(error);
    return exitCode::usage;
}

bool Refuse(const std::string& why) {
    Say(why);
    return false;
}

std::string Named(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

// A fleet is asked and nothing else.
bool AsksFleet(const CLI::App& app) {
    return app.got_subcommand("query") || app.got_subcommand("sql") || app.got_subcommand("hunt");
}

bool NameFleet(const CLI::App& app, const FleetNames& fleet) {
    if (fleet.url.empty())
        return fleet.hosts.empty() && fleet.passwordFile.empty()
                   ? true
                   : Refuse("--host and --fleet-password go with --fleet");
    if (!AsksFleet(app))
        return Refuse("--fleet: a fleet is asked by query, sql and hunt; " +
                      app.get_subcommands().front()->get_name() + " is for one store");
    std::string problem;
    return UseFleetServer(fleet, &problem) || Refuse("--fleet: " + problem);
}

// What the command line names goes ahead of what the environment does.
bool NamePlace(const CLI::App& app, GlobalOptions* options, FleetNames* fleet) {
    const bool isNamed = app.count("--store") + app.count("--socket") + app.count("--fleet") != 0;
    if (app.count("--store") != 0 && app.count("--socket") != 0)
        return Refuse("--store and --socket name two stores");
    if (app.count("--fleet") != 0 && app.count("--store") + app.count("--socket") != 0)
        return Refuse("--fleet names a fleet and --store or --socket one store");
    if (!isNamed) {
        options->socket = Named("ZEL_SOCKET");
        options->store = options->socket.empty() ? Named("ZEL_STORE") : "";
        if (options->socket.empty() && options->store.empty() && options->config.empty() &&
            AsksFleet(app))
            fleet->url = Named("ZEL_FLEET");
    }
    return NameFleet(app, *fleet);
}

// A store that was named as an archive is asked in an unpacked copy.
bool UnpackStore(PackedStore& packed, bool isKept, GlobalOptions* options) {
    if (!PackedStore::IsNamed(options->store))
        return true;
    std::string problem;
    if (isKept)
        packed.Keep();
    const bool isDone = packed.Unpack(options->store, &problem);
    if (!packed.Directory().empty() && (isKept || TalksToTerminal()))
        Say(options->store + " is unpacked to " + packed.Directory() + ": " +
            std::to_string(packed.Files()) + " files, " + std::to_string(packed.Bytes()) +
            " bytes" + (isKept ? ", which stay there" : ""));
    if (!isDone) {
        Say(problem);
        return false;
    }
    AllowReadingAlone("the store " + options->store +
                      " is an archive, which is read and never changed");
    options->store = packed.Directory();
    return true;
}

int RunCommand(GlobalOptions options, bool keepsTemporary, const Run& run) {
    PackedStore packed;
    if (!UnpackStore(packed, keepsTemporary, &options))
        return Interrupted() ? exitCode::interrupted : exitCode::noStore;
    return ApplyOptions(options) ? FinishStdout(run()) : exitCode::usage;
}

}  // namespace

int main(int argc, char** argv) {
    // Ahead of all else, since the first file that is opened would take a free one.
    OccupyStandardDescriptors();
    CLI::App app("zel: the local store of security events", "zel");
    app.require_subcommand(1);
    app.set_version_flag("--version", "zel " ZEL_VERSION);
    GlobalOptions global;
    app.add_option("--store", global.store,
                   "The store's directory, or an archive of one to read; else $ZEL_STORE")
        ->take_last()  // an alias may name one already
        ->type_name("DIR");
    app.add_option("--socket", global.socket,
                   "In its place the socket of an agent that owns the store; else $ZEL_SOCKET")
        ->take_last()
        ->type_name("PATH");
    app.add_option("--config", global.config,
                   "A file that names directories, such as ZELDataStore=DIR")
        ->type_name("FILE");
    FleetNames fleet;
    app.add_option("--fleet", fleet.url,
                   "To ask a fleet in its place: its server, as http[s]://[USER@]HOST[:PORT]"
                   "[/DATABASE]; else $ZEL_FLEET")
        ->take_last()
        ->type_name("URL");
    app.add_option("--host", fleet.hosts,
                   "Of the fleet this host alone; may be given several times")
        ->allow_extra_args(false)
        ->type_name("HOST");
    app.add_option("--fleet-password", fleet.passwordFile,
                   "A file with the password there; else $ZEL_FLEET_PASSWORD")
        ->type_name("FILE");
    bool keepsTemporary = false;
    app.add_flag("--keep-temporary", keepsTemporary, "Leave an unpacked archive where it is");
    app.add_flag("-v,--verbose", global.verbose, "Tell what the store reports");
    Run run;
    AddCommands(app, run);
    app.footer(
        "These options may stand anywhere: zel query --since today --store DIR.\n"
        "`zel COMMAND --help` tells those of a command, zel(1) all of them.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return TellUsage(app, error);
    }
    if (!NamePlace(app, &global, &fleet))
        return exitCode::usage;
    // Not earlier: while the command line is read, a signal may end the program as it always does.
    WatchInterrupts();
    try {
        return RunCommand(global, keepsTemporary, run);
    } catch (const std::exception& error) {
        Say(std::string("failed: ") + error.what());
        return exitCode::noStore;
    }
}
