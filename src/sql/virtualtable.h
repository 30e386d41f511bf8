#pragma once

#include <memory>
#include <span>
#include <string>

#include "records/seentexts.h"
#include "sql/sqliteapi.h"
#include "sql/sqlstore.h"
#include "sql/timeorder.h"

// The frame of a virtual table: SQLite's functions in C on one side, classes on the other. What the
// classes throw ends there, as an error of the statement. Results are SQLite's. A connection is
// used by one thread at a time, which SQLite sees to.
namespace zel {

// What all tables of one connection share.
class SqlConnection {
public:
    // `store` is for tables that name no directory; null: each has to. The listener must outlive
    // the connection, and the process's first one its end.
    SqlConnection(sqlite3* database, std::shared_ptr<SqlStore> store, ISessionListener& listener)
        : database_(database), store_(std::move(store)), listener_(listener) {}

    // Of the directory; of none the connection's own. Null with words in `problem`.
    std::shared_ptr<SqlStore> StoreIn(const std::string& directory, std::string* problem) const;
    // Whether the statement is to end: the program, or whoever uses the connection, wants that.
    // Costs a small statement.
    bool IsInterrupted() const noexcept;
    sqlite3* Database() const noexcept { return database_; }
    // A row's number, by the text that makes it another row than the rest. A statement may walk a
    // table in several ways and puts the rows together by their numbers, so a row must have one
    // number in every walk.
    sqlite3_int64 RowNumber(std::string_view text) const noexcept {
        return static_cast<sqlite3_int64>(numbers_.NumberOf(text));
    }
    TimeOrder& Times() noexcept { return times_; }

    // A statement begins with the first of its cursors.
    void OnOpen() noexcept {
        if (cursors_++ == 0)
            times_.BeginStatement();
    }
    void OnClose() noexcept { --cursors_; }

private:
    sqlite3* const database_;
    const std::shared_ptr<SqlStore> store_;
    ISessionListener& listener_;
    TimeOrder times_;
    const SeenTexts numbers_;
    int cursors_ = 0;
};

class TableKind;

// One table, as a connection knows it.
struct VirtualTable : sqlite3_vtab {
    const TableKind* kind = nullptr;
    std::shared_ptr<SqlConnection> connection;
    std::shared_ptr<SqlStore> store;
    // Whether conditions are used to narrow the walk. Off, SQLite tests all by itself.
    bool narrows = true;
};

// A walk over the rows of one table. Begins with Filter, which may come again.
class TableCursor : public sqlite3_vtab_cursor {
public:
    explicit TableCursor(VirtualTable& table) : sqlite3_vtab_cursor{}, table_(table) {
        table.connection->OnOpen();
    }
    virtual ~TableCursor() { table_.connection->OnClose(); }
    TableCursor(const TableCursor&) = delete;
    TableCursor& operator=(const TableCursor&) = delete;

    // `plan` is what TableKind::Plan left for these values.
    virtual int Filter(const std::string& plan, std::span<sqlite3_value*> values) = 0;
    virtual int Next() = 0;
    virtual bool AtEnd() const = 0;
    // Puts the value of the present row's column into the context.
    virtual void Column(sqlite3_context* context, int column) = 0;
    virtual sqlite3_int64 RowId() const = 0;

protected:
    VirtualTable& Table() const noexcept { return table_; }
    // An error of the statement, with words.
    int Fail(int result, const std::string& why) const;

private:
    VirtualTable& table_;
};

// What tables of one module are like. Lives as long as the process.
class TableKind {
public:
    virtual ~TableKind() = default;
    // As CREATE TABLE tells the columns.
    virtual std::string Columns() const = 0;
    // Chooses among the conditions and leaves a text for Filter in `*plan`; asked only for tables
    // that narrow.
    virtual int Plan(VirtualTable& /*table*/, sqlite3_index_info& /*info*/,
                     std::string* /*plan*/) const {
        return SQLITE_OK;
    }
    virtual std::unique_ptr<TableCursor> Open(VirtualTable& table) const = 0;
};

// Makes the kind known under a name. `connection` lives until the database is closed.
int RegisterKind(sqlite3* database, const char* name, const TableKind& kind,
                 const std::shared_ptr<SqlConnection>& connection);

// Text of UTF-8 as a value of the context, which copies it.
void ResultText(sqlite3_context* context, std::string_view text);

}  // namespace zel
