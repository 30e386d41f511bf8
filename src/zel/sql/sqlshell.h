#pragma once

#include <string>

#include "zel/sql/sqlscript.h"

namespace zel {

// Statements from a person at a terminal, with history and completion. Ctrl-C ends the statement
// that runs, or throws away the one that is being written. Gives what the program ends with.
int RunShell(SqlDatabase& database, SqlScript& script);

// The same from standard input that is no terminal. Ends at the first statement that fails, with
// what it gives; else with what the last one gives.
int RunInput(SqlScript& script);

}  // namespace zel
