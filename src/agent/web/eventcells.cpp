#include "agent/web/eventcells.h"

#include <algorithm>
#include <optional>

#include "common/jsontext.h"

namespace zel {

std::unique_ptr<EventCells> EventCells::Of(std::string_view list, std::string* problem) {
    constexpr std::string_view usual = "time,object,action,actor_path,target_path";
    constexpr std::size_t mostCells = 64;
    std::unique_ptr<EventCells> cells(new EventCells);
    std::string_view rest = list.empty() ? usual : list;
    while (!rest.empty()) {
        const std::string_view name = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        const Column* const column = FindColumn(name);
        if (column == nullptr || cells->columns_.size() == mostCells) {
            *problem = column == nullptr ? "fields: there is no column " + std::string(name)
                                         : "fields: more than 64 columns";
            return nullptr;
        }
        cells->columns_.push_back(column);
    }
    return cells;
}

bool EventCells::Read(std::string_view key, std::string_view record) {
    key_ = key;
    isRead_ = reader_.Read(record);
    return isRead_;
}

void EventCells::PutValue(const Column& column, std::string* out) {
    const auto value = column.name == "key" ? std::optional(key_)
                       : isRead_            ? reader_.Value(column)
                                            : std::nullopt;
    *out += value ? wm::JsonString(*value) : "null";
}

void EventCells::PutValue(std::string_view column, std::string* out) {
    PutValue(*FindColumn(column), out);
}

void EventCells::PutCells(std::string* out) {
    *out += '[';
    for (const Column* const column : columns_) {
        if (column != columns_.front())
            *out += ',';
        PutValue(*column, out);
    }
    *out += ']';
}

}  // namespace zel
