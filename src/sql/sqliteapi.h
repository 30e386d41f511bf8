#pragma once

#include <sqlite3ext.h>

// The functions of SQLite. Where these sources are part of a program they are those that it links
// (SQLITE_CORE); in the loadable extension they are reached through a table that the loading
// program hands over, which may have an SQLite of its own.
SQLITE_EXTENSION_INIT3
