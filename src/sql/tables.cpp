#include "sql/tables.h"

#include <new>

#include "sql/eventstable.h"
#include "sql/expressions.h"
#include "sql/storetables.h"
#include "sql/virtualtable.h"

namespace zel {

namespace {

using Connection = std::shared_ptr<SqlConnection>;

// The collation holds the connection, too: it may be used while tables are being closed.
int CompareTimes(void* connection, int leftSize, const void* left, int rightSize,
                 const void* right) {
    try {
        const TimeOrder& times = (*static_cast<Connection*>(connection))->Times();
        return times.Compare(
            {static_cast<const char*>(left), static_cast<std::size_t>(leftSize)},
            {static_cast<const char*>(right), static_cast<std::size_t>(rightSize)});
    } catch (const std::bad_alloc&) {
        return 0;  // SQLite has no way to hear of it
    }
}

// All tables of one database share a connection: those that it has keep theirs.
bool IsRegistered(sqlite3* database) {
    const std::string statement = std::string("SELECT '' = '' COLLATE ") + TimeOrder::name;
    sqlite3_stmt* prepared = nullptr;
    const int result = sqlite3_prepare_v2(database, statement.c_str(), -1, &prepared, nullptr);
    sqlite3_finalize(prepared);
    return result == SQLITE_OK;
}

int RegisterTimes(sqlite3* database, const Connection& connection) {
    auto* const kept = new Connection(connection);
    const int result =
        sqlite3_create_collation_v2(database, TimeOrder::name, SQLITE_UTF8, kept, CompareTimes,
                                    [](void* held) { delete static_cast<Connection*>(held); });
    if (result != SQLITE_OK)
        delete kept;  // which SQLite does in all other calls of the kind
    return result;
}

}  // namespace

int RegisterTables(sqlite3* database, std::shared_ptr<SqlStore> store, ISessionListener& listener) {
    const struct {
        const char* name;
        const TableKind& kind;
    } rows[] = {
        {"zel", EventsTable()},
        {"zel_folders", FoldersTable()},
        {"zel_enrichments", EnrichmentsTable()},
        {"zel_errors", ErrorsTable()},
    };
    try {
        if (IsRegistered(database))
            return SQLITE_OK;
        const auto connection =
            std::make_shared<SqlConnection>(database, std::move(store), listener);
        int result = RegisterTimes(database, connection);
        if (result == SQLITE_OK)
            result = RegisterExpressions(database);
        for (const auto& row : rows)
            if (result == SQLITE_OK)
                result = RegisterKind(database, row.name, row.kind, connection);
        return result;
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    }
}

}  // namespace zel
