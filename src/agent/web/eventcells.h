#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/recordreader.h"

namespace zel {

// The cells of a row of the page's list: columns of an event as an array of JSON, null where the
// event has no such value. For one thread.
class EventCells {
public:
    // "time,object,actor_path"; an empty list: time, object, action, actor_path, target_path. Null,
    // with words, for a name that is no column.
    static std::unique_ptr<EventCells> Of(std::string_view list, std::string* problem);

    // False for a text that is no record; cells are null then. Good until the next call.
    bool Read(std::string_view key, std::string_view record);
    void PutCells(std::string* out);
    // A column that need not be one of the cells; as JSON.
    void PutValue(std::string_view column, std::string* out);

private:
    EventCells() = default;
    void PutValue(const Column& column, std::string* out);

    std::vector<const Column*> columns_;
    RecordReader reader_;
    std::string_view key_;
    bool isRead_ = false;
};

}  // namespace zel
