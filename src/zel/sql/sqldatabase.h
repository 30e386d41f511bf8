#pragma once

#include <memory>
#include <string>

#include "sql/sqliteapi.h"
#include "sql/sqlstore.h"

namespace zel {

// A database of SQLite in memory that holds the store's tables and nothing else: events, folders,
// enrichments and errors. It can only be read. For one thread, but for Interrupt.
class SqlDatabase {
public:
    SqlDatabase() = default;
    ~SqlDatabase() { sqlite3_close(database_); }
    SqlDatabase(const SqlDatabase&) = delete;
    SqlDatabase& operator=(const SqlDatabase&) = delete;

    // False, with words in `problem`.
    bool Open(const std::shared_ptr<SqlStore>& store, std::string* problem);
    sqlite3* Get() const noexcept { return database_; }

private:
    sqlite3* database_ = nullptr;
};

}  // namespace zel
