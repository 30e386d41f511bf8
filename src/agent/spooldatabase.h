#pragma once

#include <sqlite3.h>
#include <zlib.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "agent/spool.h"

// SQLite as the spool uses it. For its sources alone, under the spool's lock.
namespace zel {

inline std::int64_t Checksum(std::string_view body) {
    return static_cast<std::int64_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(body.data()), body.size()));
}

// A statement that is prepared once and run many times.
class Statement {
public:
    ~Statement() { ::sqlite3_finalize(statement_); }
    Statement() = default;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool Prepare(sqlite3* database, const char* text) {
        return ::sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement_,
                                    nullptr) == SQLITE_OK;
    }
    Statement& Bind(int at, std::int64_t value) {
        ::sqlite3_bind_int64(statement_, at, value);
        return *this;
    }
    // The text has to live until Reset.
    Statement& Bind(int at, std::string_view text) {
        ::sqlite3_bind_text64(statement_, at, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
        return *this;
    }
    Statement& BindBlob(int at, std::string_view bytes) {
        ::sqlite3_bind_blob64(statement_, at, bytes.data(), bytes.size(), SQLITE_STATIC);
        return *this;
    }
    // Whether there is a row.
    bool Step() { return ::sqlite3_step(statement_) == SQLITE_ROW; }
    bool Run() { return ::sqlite3_step(statement_) == SQLITE_DONE && Reset(); }
    bool Reset() { return ::sqlite3_reset(statement_) == SQLITE_OK; }
    std::int64_t Number(int column) { return ::sqlite3_column_int64(statement_, column); }
    std::string Text(int column) {
        const void* const bytes = ::sqlite3_column_blob(statement_, column);
        const auto size = static_cast<std::size_t>(::sqlite3_column_bytes(statement_, column));
        return bytes != nullptr ? std::string(static_cast<const char*>(bytes), size) : "";
    }

private:
    sqlite3_stmt* statement_ = nullptr;
};

struct Spool::Database {
    sqlite3* handle = nullptr;
    struct Table {
        Statement append, next, drop, sum;
        std::int64_t last = 0;  // that was appended
    };
    Table events, enrichments, hits;
    Statement addId, forgetIds, oldIds, addLedger, addFolder, purge, folders, setMark, dropMark,
        marks, kept, moveRange, addRange, takeRange, addPurge;

    ~Database() { Close(); }
    // The statements go after it: SQLite keeps the database until then.
    void Close() {
        ::sqlite3_close_v2(handle);
        handle = nullptr;
    }
    // False when it can't be had; Problem tells why.
    bool Open(const std::string& file);
    Table& Of(SpoolKind kind) {
        return kind == SpoolKind::events        ? events
               : kind == SpoolKind::enrichments ? enrichments
                                                : hits;
    }
    bool PrepareTable(const std::string& name, Table* table) {
        const auto prepare = [&](Statement& statement, const std::string& text) {
            return statement.Prepare(handle, text.c_str());
        };
        return prepare(table->append,
                       "INSERT INTO " + name + "(events, checksum, body) VALUES(?,?,?)") &&
               prepare(table->next, "SELECT number, events, checksum, body FROM " + name +
                                        " WHERE number > ? ORDER BY number LIMIT 1") &&
               prepare(table->drop, "DELETE FROM " + name + " WHERE number <= ?") &&
               prepare(table->sum,
                       "SELECT coalesce(sum(events), 0), coalesce(sum(length(body)), 0) FROM " +
                           name + " WHERE number > ? AND number <= ?");
    }
    bool AppendRow(SpoolKind kind, std::uint64_t count, std::string_view body) {
        Table& table = Of(kind);
        if (!table.append.Bind(1, static_cast<std::int64_t>(count))
                 .Bind(2, Checksum(body))
                 .BindBlob(3, body)
                 .Run())
            return false;
        table.last = ::sqlite3_last_insert_rowid(handle);
        return true;
    }
    // What rows behind the first number up to the last hold.
    static bool Sum(Table& table, std::int64_t behind, std::int64_t through, std::uint64_t* records,
                    std::uint64_t* bytes) {
        if (!table.sum.Bind(1, behind).Bind(2, through).Step())
            return false;
        *records = static_cast<std::uint64_t>(table.sum.Number(0));
        *bytes = static_cast<std::uint64_t>(table.sum.Number(1));
        return table.sum.Reset();
    }
    bool Run(const char* text) {
        return ::sqlite3_exec(handle, text, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    std::string Problem() const {
        return std::string("the spool: ") +
               (handle != nullptr ? ::sqlite3_errmsg(handle) : "no memory");
    }
    // A folder's first part may stand in the one before: it was given ahead of the store's change
    // from the one to the other. So the last key of the former folder moves along with it.
    bool PrepareRanges() {
        return moveRange.Prepare(
                   handle,
                   "UPDATE ranges SET last=?2 WHERE last=(SELECT max(last) FROM"
                   " ranges) AND NOT EXISTS (SELECT 1 FROM ranges WHERE folder=?1)") &&
               addRange.Prepare(handle,
                                "INSERT INTO ranges VALUES(?1,?2) ON CONFLICT(folder)"
                                " DO UPDATE SET last=?2") &&
               takeRange.Prepare(handle, "DELETE FROM ranges WHERE folder=? RETURNING last") &&
               addPurge.Prepare(handle, "INSERT INTO purges VALUES(?1,?2)");
    }
    bool Count(const char* name, std::uint64_t value) {
        return value == 0 ||
               addLedger.Bind(1, name).Bind(2, static_cast<std::int64_t>(value)).Run();
    }
    // Runs `work` as one transaction; what it has done is undone when it gives false.
    template <typename Work>
    bool Transact(std::string* problem, Work work) {
        if (Run("BEGIN IMMEDIATE") && work() && Run("COMMIT"))
            return true;
        *problem = Problem();
        Run("ROLLBACK");
        return false;
    }
};

}  // namespace zel
