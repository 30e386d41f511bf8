#include "sql/virtualtable.h"

#include <exception>
#include <new>
#include <optional>
#include <string_view>

// Arguments of a table, as in create virtual table e using zel('DIR', narrow=off): a text is the
// store's directory, NAME=VALUE an option.

namespace zel {

namespace {

struct Module {
    const TableKind& kind;
    std::shared_ptr<SqlConnection> connection;
};

struct Arguments {
    std::string directory;
    bool narrows = true;
};

VirtualTable& TableOf(sqlite3_vtab* table) {
    return *static_cast<VirtualTable*>(table);
}
TableCursor& CursorOf(sqlite3_vtab_cursor* cursor) {
    return *static_cast<TableCursor*>(cursor);
}

void SetMessage(char** message, const std::string& text) {
    sqlite3_free(*message);
    *message = sqlite3_mprintf("%s", text.c_str());
}

// Runs the body of a function that SQLite calls; what it throws becomes an error with its text.
template <typename Body>
int Guarded(char** message, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    } catch (const std::exception& error) {
        SetMessage(message, error.what());
        return SQLITE_ERROR;
    }
}

// A text of SQL without its quotes; an unquoted one as it stands.
std::string Unquoted(std::string_view text) {
    const char quote = text.empty() ? '\0' : text.front();
    if ((quote != '\'' && quote != '"') || text.size() < 2 || text.back() != quote)
        return std::string(text);
    std::string plain;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        plain += text[i];
        if (text[i] == quote)
            ++i;  // doubled
    }
    return plain;
}

bool ReadArguments(std::span<const char* const> texts, Arguments* arguments, std::string* problem) {
    for (const std::string_view text : texts) {
        if (text == "narrow=off" || text == "narrow=on") {
            arguments->narrows = text == "narrow=on";
        } else if (arguments->directory.empty() &&
                   (text.find_first_of("'\"") == 0 || text.find('=') == text.npos)) {
            arguments->directory = Unquoted(text);
        } else {
            *problem = "unknown argument " + std::string(text) + "; there are 'DIR' and narrow=off";
            return false;
        }
    }
    return true;
}

int Connect(sqlite3* database, void* aux, int count, const char* const* texts, sqlite3_vtab** out,
            char** message) {
    return Guarded(message, [&] {
        constexpr int firstArgument = 3;  // behind the module's, the database's, the table's name
        const Module& module = *static_cast<Module*>(aux);
        Arguments arguments;
        std::string problem;
        const std::span<const char* const> all(texts, static_cast<std::size_t>(count));
        auto table = std::make_unique<VirtualTable>();
        if (ReadArguments(all.subspan(firstArgument), &arguments, &problem))
            table->store = module.connection->StoreIn(arguments.directory, &problem);
        if (!table->store) {
            SetMessage(message, problem);
            return SQLITE_ERROR;
        }
        table->kind = &module.kind;
        table->connection = module.connection;
        table->narrows = arguments.narrows;
        const std::string columns = "CREATE TABLE t(" + module.kind.Columns() + ")";
        const int result = sqlite3_declare_vtab(database, columns.c_str());
        if (result == SQLITE_OK)
            *out = table.release();
        return result;
    });
}

int Disconnect(sqlite3_vtab* table) {
    delete &TableOf(table);
    return SQLITE_OK;
}

int BestIndex(sqlite3_vtab* table, sqlite3_index_info* info) {
    return Guarded(&table->zErrMsg, [&] {
        constexpr double rowsUnknown = 1e6;
        info->estimatedCost = rowsUnknown;
        info->estimatedRows = static_cast<sqlite3_int64>(rowsUnknown);
        if (!TableOf(table).narrows)
            return SQLITE_OK;
        std::string plan;
        const int result = TableOf(table).kind->Plan(TableOf(table), *info, &plan);
        info->idxStr = sqlite3_mprintf("%s", plan.c_str());
        info->needToFreeIdxStr = 1;
        return info->idxStr != nullptr ? result : SQLITE_NOMEM;
    });
}

int Open(sqlite3_vtab* table, sqlite3_vtab_cursor** out) {
    return Guarded(&table->zErrMsg, [&] {
        *out = TableOf(table).kind->Open(TableOf(table)).release();
        return SQLITE_OK;
    });
}

int Close(sqlite3_vtab_cursor* cursor) {
    delete &CursorOf(cursor);
    return SQLITE_OK;
}

int Filter(sqlite3_vtab_cursor* cursor, int, const char* plan, int count, sqlite3_value** values) {
    return Guarded(&cursor->pVtab->zErrMsg, [&] {
        return CursorOf(cursor).Filter(plan != nullptr ? plan : "",
                                       {values, static_cast<std::size_t>(count)});
    });
}

int Next(sqlite3_vtab_cursor* cursor) {
    return Guarded(&cursor->pVtab->zErrMsg, [&] { return CursorOf(cursor).Next(); });
}

int AtEnd(sqlite3_vtab_cursor* cursor) {
    return CursorOf(cursor).AtEnd() ? 1 : 0;
}

int Column(sqlite3_vtab_cursor* cursor, sqlite3_context* context, int column) {
    return Guarded(&cursor->pVtab->zErrMsg, [&] {
        CursorOf(cursor).Column(context, column);
        return SQLITE_OK;
    });
}

int RowId(sqlite3_vtab_cursor* cursor, sqlite3_int64* id) {
    return Guarded(&cursor->pVtab->zErrMsg, [&] {
        *id = CursorOf(cursor).RowId();
        return SQLITE_OK;
    });
}

// Without what writes, so that SQLite refuses it.
const sqlite3_module& Functions() {
    static const sqlite3_module functions = [] {
        sqlite3_module made{};
        made.xCreate = made.xConnect = Connect;
        made.xDisconnect = made.xDestroy = Disconnect;
        made.xBestIndex = BestIndex;
        made.xOpen = Open;
        made.xClose = Close;
        made.xFilter = Filter;
        made.xNext = Next;
        made.xEof = AtEnd;
        made.xColumn = Column;
        made.xRowid = RowId;
        return made;
    }();
    return functions;
}

}  // namespace

std::shared_ptr<SqlStore> SqlConnection::StoreIn(const std::string& directory,
                                                 std::string* problem) const {
    if (!directory.empty())
        return SqlStore::Open(directory, listener_, problem);
    if (!store_)
        *problem = "no store is named: ... using zel('DIR')";
    return store_;
}

// SQLite keeps to itself whether it was interrupted; any statement tells.
bool SqlConnection::IsInterrupted() const noexcept {
    return listener_.Interrupted() ||
           sqlite3_exec(database_, "SELECT 1", nullptr, nullptr, nullptr) == SQLITE_INTERRUPT;
}

int TableCursor::Fail(int result, const std::string& why) const {
    SetMessage(&table_.zErrMsg, why);
    return result;
}

int RegisterKind(sqlite3* database, const char* name, const TableKind& kind,
                 const std::shared_ptr<SqlConnection>& connection) {
    // SQLite destroys it, also when this fails.
    return sqlite3_create_module_v2(database, name, &Functions(), new Module{kind, connection},
                                    [](void* module) { delete static_cast<Module*>(module); });
}

void ResultText(sqlite3_context* context, std::string_view text) {
    sqlite3_result_text64(context, text.data() != nullptr ? text.data() : "", text.size(),
                          SQLITE_TRANSIENT, SQLITE_UTF8);
}

}  // namespace zel
