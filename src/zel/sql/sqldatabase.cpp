#include "zel/sql/sqldatabase.h"

#include <algorithm>
#include <string_view>

#include "sql/tables.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"

// A statement comes from somebody who wants to read events, and may come from a script that was
// found somewhere. So nothing but reading is allowed: no statement that writes, no other database,
// no setting, no file.

namespace zel {

namespace {

// What tells of tables and of SQLite itself.
constexpr std::string_view readingPragmas[] = {
    "collation_list", "compile_options", "database_list", "function_list", "index_list",
    "module_list",    "pragma_list",     "table_info",    "table_list",    "table_xinfo",
};

bool IsReadingPragma(const char* name) {
    return std::find(std::begin(readingPragmas), std::end(readingPragmas),
                     std::string_view(name)) != std::end(readingPragmas);
}

int AllowReading(void*, int action, const char* first, const char* second, const char*,
                 const char*) {
    switch (action) {
        case SQLITE_SELECT:
        case SQLITE_READ:
        case SQLITE_RECURSIVE:
        case SQLITE_TRANSACTION:
            return SQLITE_OK;
        case SQLITE_UPDATE:
            // How SQLite makes tables known that exist by their name alone; a statement that would
            // write there is refused by SQLite itself.
            return std::string_view(first) == "sqlite_master" ? SQLITE_OK : SQLITE_DENY;
        case SQLITE_FUNCTION:
            return std::string_view(second) == "load_extension" ? SQLITE_DENY : SQLITE_OK;
        case SQLITE_PRAGMA:
            return IsReadingPragma(first) ? SQLITE_OK : SQLITE_DENY;
        default:
            return SQLITE_DENY;
    }
}

int EndsWhenInterrupted(void*) {
    return Interrupted() ? 1 : 0;
}

}  // namespace

bool SqlDatabase::Open(const std::shared_ptr<SqlStore>& store, std::string* problem) {
    constexpr const char* tables =
        "CREATE VIRTUAL TABLE events USING zel;"
        "CREATE VIRTUAL TABLE folders USING zel_folders;"
        "CREATE VIRTUAL TABLE enrichments USING zel_enrichments;"
        "CREATE VIRTUAL TABLE errors USING zel_errors;";
    constexpr int stepsBetweenLooks = 10000;
    int result = sqlite3_open(":memory:", &database_);
    if (result == SQLITE_OK)
        result = RegisterTables(database_, store, Terminal());
    if (result == SQLITE_OK)
        result = sqlite3_exec(database_, tables, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        *problem = std::string("SQLite: ") + sqlite3_errmsg(database_);
        return false;
    }
    sqlite3_db_config(database_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_limit(database_, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_set_authorizer(database_, AllowReading, nullptr);
    sqlite3_progress_handler(database_, stepsBetweenLooks, EndsWhenInterrupted, nullptr);
    return true;
}

}  // namespace zel
