#include "records/formats/osquery.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "records/eventtime.h"
#include "records/formats/jsonevent.h"
#include "records/formats/osquerytable.h"
#include "records/jsonfields.h"

// A line holds one row of a query's result (`columns`), or several: what has come and gone since
// the query ran last (`diffResults`), or all there is (`snapshot`). Each row is an event of its
// own, with all that the line says beside its rows. A row that has gone is no event: nothing
// happened but that the query gives it no more.

namespace zel {

namespace {

constexpr std::string_view columns = "columns.";
constexpr std::string_view addedRows = "diffResults.added";
constexpr std::string_view removedRows = "diffResults.removed";
constexpr std::string_view snapshotRows = "snapshot";

class OsquerySource final : public LineSource {
public:
    explicit OsquerySource(Mapper& mapper) : mapper_(mapper) {}

    void Give(const SourceLine& line) override;
    bool Next(SourceItem* item) override;

private:
    struct Row {
        std::string json;
        bool isRemoved = false;
    };

    void AddRows(std::string_view member, bool isRemoved);
    void ReadRow(const Row& row, SourceItem* item);
    void Map(SourceFields& fields, bool isRemoved, SourceItem* item);

    Mapper& mapper_;
    std::optional<SourceLine> line_;
    std::vector<Row> rows_;  // of the line, if it holds several
    std::size_t nextRow_ = 0;
    bool hasRows_ = false;      // it is one that holds several, if only none
    std::string_view problem_;  // with its rows
    std::string_view problemMember_;

    JsonFields splitter_;
    JsonFields reader_;
    SourceFields rowFields_;
    std::vector<std::string> items_;
};

void OsquerySource::Give(const SourceLine& line) {
    line_ = line;
    rows_.clear();
    nextRow_ = 0;
    hasRows_ = false;
    problem_ = {};
    problemMember_ = {};
    if (line.fields == nullptr)
        return;
    AddRows(addedRows, false);
    AddRows(removedRows, true);
    AddRows(snapshotRows, false);
    // Each row is read with all members beside them; no real line comes near.
    constexpr std::size_t mostFields = std::size_t{1} << 24;
    if (rows_.size() * line.fields->All().size() > mostFields) {
        rows_.clear();
        problem_ = "too many rows for so many members";
    }
}

void OsquerySource::AddRows(std::string_view member, bool isRemoved) {
    const SourceField* const field = line_->fields->FindWhole(member);
    if (field == nullptr)
        return;
    hasRows_ = true;
    if (field->kind != SourceField::Kind::json || !splitter_.Split(field->text, &items_)) {
        problem_ = "no list of rows";
        problemMember_ = member;
        return;
    }
    for (std::string& item : items_)
        rows_.push_back({std::move(item), isRemoved});
    items_.clear();
}

bool OsquerySource::Next(SourceItem* item) {
    if (!line_)
        return false;
    item->Clear();
    item->place = line_->number;
    if (nextRow_ < rows_.size()) {
        ReadRow(rows_[nextRow_++], item);
        return true;
    }
    const SourceLine line = *std::exchange(line_, std::nullopt);
    if (line.fields == nullptr) {
        item->problem = "no JSON object";
        return true;
    }
    if (!problem_.empty()) {
        item->problem = problem_;
        item->detail = problemMember_;
        return true;
    }
    // Results without rows are logged as well.
    if (hasRows_)
        return false;
    const SourceField* const action = line.fields->FindWhole("action");
    Map(*line.fields, action != nullptr && action->text == "removed", item);
    return true;
}

void OsquerySource::ReadRow(const Row& row, SourceItem* item) {
    rowFields_.Clear();
    for (const SourceField& field : line_->fields->All()) {
        if (field.name != snapshotRows && field.name != addedRows && field.name != removedRows)
            rowFields_.AddCopy(field);
    }
    if (reader_.Read(row.json, &rowFields_, columns)) {
        Map(rowFields_, row.isRemoved, item);
        return;
    }
    item->problem = "a row that is no object";
    item->detail = row.json.substr(0, 200);
}

void OsquerySource::Map(SourceFields& fields, bool isRemoved, SourceItem* item) {
    const SourceField* const query = fields.FindWhole("name");
    EventHead head;
    head.format = "osquery";
    head.computer = TakeFirst(fields, "hostIdentifier|hostname");
    fields.SetScope(columns);
    const std::string_view table =
        OsqueryTableOf(query != nullptr ? query->text : std::string_view{}, fields);
    head.channel = !table.empty() ? table : query != nullptr ? query->text : std::string_view{};
    head.eventName = isRemoved ? "removed" : "";
    head.recordNumber = TakeNumber(fields, "eid");

    head.timeField = "columns.time";
    const SourceField* time = fields.FindWhole(head.timeField);
    if (time == nullptr || time->IsAbsent() || time->text == "0") {
        head.timeField = "unixTime";
        time = fields.FindWhole(head.timeField);
    }
    const auto exact = time != nullptr ? EventTimeOfSeconds(time->text) : std::nullopt;
    if (exact)
        head.time = fields.Keep(exact->text);
    if (isRemoved || table.empty()) {
        mapper_.Pass(head, fields, item);
        return;
    }
    fields.AddText(fields.Keep(columns, osqueryTableName), table).taken = true;
    mapper_.Map(osqueryTable, head, fields, item);
}

}  // namespace

bool KnowsOsquery(const SourceLine& line) {
    const SourceFields* const fields = line.fields;
    return fields != nullptr && (fields->Has("hostIdentifier") || fields->Has("hostname")) &&
           (fields->Has("columns") || fields->Has("diffResults") || fields->Has("snapshot"));
}

std::unique_ptr<LineSource> MakeOsquery(Mapper& mapper) {
    return std::make_unique<OsquerySource>(mapper);
}

}  // namespace zel
