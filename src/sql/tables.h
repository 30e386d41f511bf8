#pragma once

#include <memory>

#include "sql/sqliteapi.h"
#include "sql/sqlstore.h"

namespace zel {

// Makes the modules zel, zel_folders, zel_enrichments and zel_errors known to a connection, with
// what statements on their tables need: the order of times, and REGEXP. `store` is for tables that
// name no directory, and may be null. A result of SQLite. The listener must outlive the connection,
// and the process's first one its end.
int RegisterTables(sqlite3* database, std::shared_ptr<SqlStore> store, ISessionListener& listener);

}  // namespace zel
