#include <algorithm>

#include "agent/web/listrows.h"
#include "records/recordwriter.h"

namespace zel {

namespace {

constexpr std::string_view usual = "time,object,action,actor_path,target_path";
constexpr std::size_t mostCells = 64;
constexpr std::size_t longestCell = 4096;  // bytes; the event itself is shown whole

// Cut where no character is cut.
std::string_view Cut(std::string_view text) {
    if (text.size() <= longestCell)
        return text;
    std::size_t end = longestCell;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end);
}

}  // namespace

std::optional<ListCells> ListCells::Read(std::string_view list, std::string* problem) {
    if (list.empty())
        list = usual;
    ListCells cells;
    for (std::size_t at = 0; at <= list.size();) {
        const std::size_t end = std::min(list.find(',', at), list.size());
        const std::string_view name = list.substr(at, end - at);
        Cell cell;
        cell.column = FindColumn(name);
        if (name == "rule" || name == "level") {
            cell.from = name == "rule" ? Cell::rules : Cell::level;
            cells.needsEnrichments_ = true;
        } else if (name.starts_with('/')) {
            cell.from = Cell::ofMember;
            cell.member = name.substr(1);
            std::replace(cell.member.begin(), cell.member.end(), '/', '.');
        } else if (cell.column == nullptr || cells.cells_.size() == mostCells) {
            *problem = "fields: there is no column \"" + std::string(name.substr(0, 64)) + "\"";
            return std::nullopt;
        }
        cells.cells_.push_back(std::move(cell));
        at = end + 1;
    }
    return cells;
}

std::string ListCells::ValueOf(const Cell& cell, const ListedEvent& event, RecordReader& reader,
                               bool isRead) const {
    if (cell.from == Cell::level)
        return std::string(HighestLevel(RuleMarksIn(event.enrichments)));
    if (cell.from == Cell::rules) {
        std::string titles;
        for (const RuleMark& mark : RuleMarksIn(event.enrichments))
            titles.append(titles.empty() ? "" : ", ").append(mark.title);
        return titles;
    }
    if (cell.from == Cell::ofColumn && cell.column->name == "key")
        return event.key;
    if (!isRead)
        return "";
    if (cell.from == Cell::ofColumn)
        return std::string(reader.Value(*cell.column).value_or(""));
    const SourceField* const field = reader.Find(cell.member);
    return field != nullptr ? std::string(field->text) : "";
}

std::string ListCells::Write(const ListedEvent& event, RecordReader& reader) const {
    const bool isRead = reader.Read(event.text);
    std::string json;
    RecordWriter writer(&json);
    writer.BeginArray();
    for (const Cell& cell : cells_) {
        const std::string value = ValueOf(cell, event, reader, isRead);
        if (value.empty())
            writer.Json("null");
        else
            writer.Text(Cut(value));
    }
    writer.EndArray();
    return json;
}

}  // namespace zel
