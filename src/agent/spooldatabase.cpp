#include "agent/spooldatabase.h"

namespace zel {

namespace {

constexpr const char* schema =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA wal_autocheckpoint=4000;"
    "PRAGMA journal_size_limit=67108864; PRAGMA user_version=1;"
    "CREATE TABLE IF NOT EXISTS spool(number INTEGER PRIMARY KEY AUTOINCREMENT,"
    " events INTEGER NOT NULL, checksum INTEGER NOT NULL, body BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS enrichments(number INTEGER PRIMARY KEY AUTOINCREMENT,"
    " events INTEGER NOT NULL, checksum INTEGER NOT NULL, body BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS hits(number INTEGER PRIMARY KEY AUTOINCREMENT,"
    " events INTEGER NOT NULL, checksum INTEGER NOT NULL, body BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS ids(number INTEGER PRIMARY KEY, at INTEGER NOT NULL,"
    " id TEXT NOT NULL UNIQUE);"
    "CREATE TABLE IF NOT EXISTS ledger(name TEXT PRIMARY KEY, value INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS marks(name TEXT PRIMARY KEY, value TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS folders(name TEXT PRIMARY KEY, events INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS ranges(folder TEXT PRIMARY KEY, last TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS purges(last TEXT NOT NULL, events INTEGER NOT NULL);";

}  // namespace

bool Spool::Database::Open(const std::string& file) {
    const auto prepare = [this](Statement& statement, const char* text) {
        return statement.Prepare(handle, text);
    };
    return ::sqlite3_open_v2(file.c_str(), &handle,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOFOLLOW,
                             nullptr) == SQLITE_OK &&
           ::sqlite3_busy_timeout(handle, 1000) == SQLITE_OK &&
           Run("PRAGMA locking_mode=EXCLUSIVE") && Run(schema) && PrepareTable("spool", &events) &&
           PrepareTable("enrichments", &enrichments) && PrepareTable("hits", &hits) &&
           prepare(kept,
                   "SELECT number, events, length(body) FROM spool WHERE number > ? AND number <= ?"
                   " ORDER BY number DESC") &&
           prepare(addId, "INSERT OR IGNORE INTO ids(at, id) VALUES(?,?)") &&
           prepare(forgetIds,
                   "DELETE FROM ids WHERE number <= (SELECT max(number) - ? FROM ids)") &&
           prepare(oldIds,
                   "DELETE FROM ids WHERE number < coalesce((SELECT number FROM ids WHERE at >= ?"
                   " ORDER BY number LIMIT 1), 9223372036854775807)") &&
           prepare(
               addLedger,
               "INSERT INTO ledger VALUES(?1,?2) ON CONFLICT(name) DO UPDATE SET value=value+?2") &&
           prepare(addFolder,
                   "INSERT INTO folders VALUES(?1,?2) ON CONFLICT(name) DO UPDATE SET"
                   " events=events+?2") &&
           prepare(purge, "DELETE FROM folders WHERE name = ? RETURNING events") &&
           prepare(folders, "SELECT name FROM folders ORDER BY name") &&
           prepare(setMark,
                   "INSERT INTO marks VALUES(?1,?2) ON CONFLICT(name) DO UPDATE SET value=?2") &&
           prepare(dropMark, "DELETE FROM marks WHERE name = ?") &&
           prepare(marks,
                   "SELECT name, value FROM marks WHERE substr(name, 1, length(?1)) = ?1"
                   " ORDER BY name") &&
           PrepareRanges();
}

}  // namespace zel
