#include "sql/storetables.h"

#include <cstdio>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "common/neverdestroyed.h"
#include "connection/agentrequest.h"
#include "connection/fleetuse.h"
#include "connection/storelook.h"

// Small tables, whose rows are all made when a statement begins with them.

namespace zel {

namespace {

using Value = std::variant<std::monostate, sqlite3_int64, std::string>;
using Row = std::vector<Value>;

Value TextOrNull(std::string text) {
    return text.empty() ? Value() : Value(std::move(text));
}

void PutResult(sqlite3_context* context, const Value& value) {
    if (const auto* const number = std::get_if<sqlite3_int64>(&value))
        sqlite3_result_int64(context, *number);
    else if (const auto* const text = std::get_if<std::string>(&value))
        ResultText(context, *text);
}

class RowsCursor final : public TableCursor {
public:
    RowsCursor(VirtualTable& table, std::vector<Row> (*make)(const SqlStore&))
        : TableCursor(table), make_(make) {}

    int Filter(const std::string&, std::span<sqlite3_value*>) override {
        rows_ = make_(*Table().store);
        at_ = 0;
        return SQLITE_OK;
    }
    int Next() override {
        ++at_;
        return SQLITE_OK;
    }
    bool AtEnd() const override { return at_ == rows_.size(); }
    void Column(sqlite3_context* context, int column) override {
        PutResult(context, rows_[at_][static_cast<std::size_t>(column)]);
    }
    sqlite3_int64 RowId() const override { return static_cast<sqlite3_int64>(at_) + 1; }

private:
    std::vector<Row> (*const make_)(const SqlStore&);
    std::vector<Row> rows_;
    std::size_t at_ = 0;
};

class RowsTable final : public TableKind {
public:
    RowsTable(const char* columns, std::vector<Row> (*make)(const SqlStore&))
        : columns_(columns), make_(make) {}
    std::string Columns() const override { return columns_; }
    int Plan(VirtualTable&, sqlite3_index_info& info, std::string*) const override {
        constexpr double few = 1000;
        info.estimatedCost = few;
        info.estimatedRows = static_cast<sqlite3_int64>(few);
        return SQLITE_OK;
    }
    std::unique_ptr<TableCursor> Open(VirtualTable& table) const override {
        return std::make_unique<RowsCursor>(table, make_);
    }

private:
    const char* const columns_;
    std::vector<Row> (*const make_)(const SqlStore&);
};

sqlite3_int64 Number(std::uint64_t number) {
    return static_cast<sqlite3_int64>(number);
}

std::vector<StoreFolder> FoldersOf(const SqlStore& store) {
    if (IsFleetUsed())
        return {};
    if (AgentSocket().empty())
        return ListStore(store.Directory()).folders;
    StoreLook look;
    std::string problem;
    LookAtStore(StoreNeed::reading, &look, &problem);
    return look.listing.folders;
}

std::vector<Row> FolderRows(const SqlStore& store) {
    std::vector<Row> rows;
    for (const StoreFolder& folder : FoldersOf(store))
        rows.push_back({folder.name, TextOrNull(folder.Date()), TextOrNull(folder.Number()),
                        std::string(folder.Kind()), Number(folder.size.files),
                        Number(folder.size.bytes), Number(folder.inUse ? 1 : 0)});
    return rows;
}

std::vector<Row> ErrorRows(const SqlStore& store) {
    std::vector<Row> rows;
    for (const DatabaseError& error : store.Failures()) {
        char result[16];
        std::snprintf(result, sizeof(result), "0x%08X", static_cast<unsigned>(error.lastResult));
        rows.push_back({error.folder, std::string(error.Operation()), Number(error.count),
                        std::string(result), error.Text()});
    }
    if (const std::uint32_t reads = store.DamagedReads())
        rows.push_back({Value(), std::string("read"), Number(reads), Value(),
                        std::to_string(reads) + " read(s) met damaged data"});
    return rows;
}

}  // namespace

const TableKind& FoldersTable() {
    static const wm::NeverDestroyed<RowsTable> table(
        "name TEXT, date TEXT, number TEXT, kind TEXT, files INTEGER, bytes INTEGER, in_use "
        "INTEGER",
        FolderRows);
    return *table;
}

const TableKind& ErrorsTable() {
    static const wm::NeverDestroyed<RowsTable> table(
        "folder TEXT, operation TEXT, count INTEGER, last_result TEXT, message TEXT", ErrorRows);
    return *table;
}

}  // namespace zel
