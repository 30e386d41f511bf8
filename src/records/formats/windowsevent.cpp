#include "records/formats/windowsevent.h"

#include "records/conversions.h"
#include "records/formats/windowstables.h"

// All shapes end in the same few things: a channel, a number, a time, and the event's own data,
// whose names Windows gives and no collector changes. So a shape is a row that says where they are.

namespace zel {

namespace {

// The first that fits is taken, so those with more to tell them by come first.
constexpr WindowsShape shapes[] = {
    // winlogbeat 7 and 8
    {"winlog.event_id", "winlog.channel", "winlog.computer_name|host.name", "winlog.record_id",
     "@timestamp", "winlog.event_data.", false},
    // winlogbeat 6
    {"event_id", "log_name", "computer_name|host.name", "record_number", "@timestamp",
     "event_data.", false},
    // the event's XML turned into JSON, with and without its outermost element
    {"Event.System.EventID|Event.System.EventID.#text|Event.System.EventID.Value",
     "Event.System.Channel", "Event.System.Computer", "Event.System.EventRecordID",
     "Event.System.TimeCreated.SystemTime|Event.System.TimeCreated.@SystemTime|"
     "Event.System.TimeCreated.#attributes.SystemTime|Event.System.TimeCreated",
     "Event.EventData.", false},
    {"System.EventID|System.EventID.#text|System.EventID.Value", "System.Channel",
     "System.Computer", "System.EventRecordID",
     "System.TimeCreated.SystemTime|System.TimeCreated.@SystemTime|"
     "System.TimeCreated.#attributes.SystemTime|System.TimeCreated",
     "EventData.", false},
    // everything side by side, as NXLog and others do; some keep the data apart
    {"EventID|EventId|event_id", "Channel|EventLog|LogName|channel",
     "Hostname|Computer|ComputerName|MachineName|host.name|host",
     "RecordNumber|EventRecordID|RecordId", "TimeCreated|@timestamp|TimeGenerated|EventTime",
     "EventData.", true},
};

SourceField* FindAny(std::string_view names, SourceFields& fields) {
    SourceField* found = nullptr;
    AnyOfAlternatives(names, [&](std::string_view name) {
        found = fields.FindWhole(name);
        if (found != nullptr && found->IsAbsent())
            found = nullptr;
        return found != nullptr;
    });
    return found;
}

// A part of the head, which is told as the source.
std::string_view Take(std::string_view names, SourceFields& fields) {
    SourceField* const field = FindAny(names, fields);
    if (field == nullptr)
        return {};
    field->taken = true;
    return field->text;
}

bool HasData(const WindowsShape& shape, const SourceFields& fields) {
    return fields.Has(shape.data.substr(0, shape.data.size() - 1));
}

void SetScope(const WindowsShape& shape, SourceFields& fields) {
    fields.SetScope(HasData(shape, fields) ? shape.data : "");
}

std::uint32_t EventNumber(std::string_view text) {
    return static_cast<std::uint32_t>(NumberIn(text).value_or(0));
}

EventHead HeadOf(const WindowsShape& shape, std::string_view format, SourceFields& fields) {
    EventHead head;
    head.format = format;
    head.channel = Take(shape.channel, fields);
    head.event = EventNumber(Take(shape.event, fields));
    head.computer = Take(shape.computer, fields);
    head.recordNumber = NumberIn(Take(shape.recordNumber, fields));
    if (const SourceField* const time = FindAny(shape.time, fields)) {
        head.time = time->text;
        head.timeField = time->name;
    }
    return head;
}

}  // namespace

const WindowsShape* ShapeOf(SourceFields& fields) {
    for (const WindowsShape& shape : shapes)
        if (FindAny(shape.event, fields) != nullptr && FindAny(shape.channel, fields) != nullptr)
            return &shape;
    return nullptr;
}

bool HasWindowsRule(const WindowsShape& shape, SourceFields& fields) {
    SetScope(shape, fields);
    return HasRule(WindowsTable(FindAny(shape.channel, fields)->text),
                   EventNumber(FindAny(shape.event, fields)->text), fields);
}

// Events without data of their own are others than those that the rows speak of.
void MapWindowsEvent(const WindowsShape& shape, std::string_view format, SourceFields& fields,
                     Mapper& mapper, SourceItem* item) {
    SetScope(shape, fields);
    const EventHead head = HeadOf(shape, format, fields);
    if (shape.isDataOptional || HasData(shape, fields))
        mapper.Map(WindowsTable(head.channel), head, fields, item);
    else
        mapper.Pass(head, fields, item);
}

void PassWindowsEvent(const WindowsShape& shape, std::string_view format, std::string_view why,
                      SourceFields& fields, Mapper& mapper, SourceItem* item) {
    SetScope(shape, fields);
    mapper.Pass(HeadOf(shape, format, fields), fields, item);
    item->problem = why;
}

}  // namespace zel
