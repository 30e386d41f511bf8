#include <unistd.h>

#include "connection/fleetuse.h"
#include "connection/storedirectory.h"
#include "zel/commands.h"
#include "zel/sql/sqlshell.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"

namespace zel {

namespace {

int Ask(const SqlOptions& options, SqlDatabase& database, SqlStore& store, Output& output) {
    const std::string form = !options.output.empty()        ? options.output
                             : ::isatty(STDOUT_FILENO) == 1 ? "table"
                                                            : "ndjson";
    SqlScript script(database, store, output, form);
    if (!options.statement.empty())
        return script.Run(options.statement);
    return ::isatty(STDIN_FILENO) == 1 ? RunShell(database, script) : RunInput(script);
}

}  // namespace

int RunSql(const SqlOptions& options) {
    std::string directory;
    if (!IsFleetUsed() && !FindStore(StoreNeed::reading, &directory))
        return exitCode::noStore;
    std::string problem;
    const auto store = SqlStore::Open(directory, Terminal(), &problem);
    SqlDatabase database;
    if (!store || !database.Open(store, &problem)) {
        Say(problem);
        return exitCode::noStore;
    }
    Output output;
    return output.Finish(Ask(options, database, *store, output));
}

}  // namespace zel
