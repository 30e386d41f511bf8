#include "records/mapping.h"

#include <algorithm>

#include "common/asciicase.h"
#include "records/conversions.h"
#include "records/eventtime.h"
#include "records/recordmaking.h"
#include "records/recordwriter.h"

// One event goes through in this order: the first row that fits is found; the record's time is
// found, without which there is no record; the members of the row are written as far as the event
// has them (recordmaking.cpp); what was not written, or not wholly, goes into `unmapped`.

namespace zel {

namespace {

constexpr std::size_t mostHashesKept = 32768;  // in each half

// A name of "a,b,c" after the other.
template <typename Use>
bool AllOfNames(std::string_view names, Use use) {
    while (!names.empty()) {
        const std::size_t comma = std::min(names.find(','), names.size());
        if (!use(names.substr(0, comma)))
            return false;
        names.remove_prefix(std::min(comma + 1, names.size()));
    }
    return true;
}

// A field that is missing is as one that is empty, so "is not x" holds of it.
bool Holds(const Condition& condition, SourceFields& fields) {
    SourceField* const field = fields.FindPresent(condition.field);
    if (field == nullptr)
        return condition.test({}, condition.wanted);
    const std::span<SourceField> values = ValuesOf(*field, fields);
    return std::any_of(values.begin(), values.end(), [&](const SourceField& value) {
        return condition.test(value.text, condition.wanted);
    });
}

bool Fits(const MappingRow& row, std::uint32_t event, SourceFields& fields) {
    const bool isAny = row.events[0] == 0;
    if (!isAny && row.events[0] != event && (row.events[1] == 0 || row.events[1] != event))
        return false;
    return std::all_of(row.conditions.begin(), row.conditions.end(),
                       [&](const Condition& condition) { return Holds(condition, fields); }) &&
           AllOfNames(row.needed,
                      [&](std::string_view name) { return fields.FindPresent(name) != nullptr; });
}

const MappingRow* RowFor(const MappingTable& table, std::uint32_t event, SourceFields& fields) {
    for (const MappingRow& row : table.rows)
        if (Fits(row, event, fields))
            return &row;
    return nullptr;
}

// The field's time when it has one, else the head's. What was used is taken, unless it was cut.
std::optional<EventTime> TimeOf(std::string_view names, const EventHead& head,
                                SourceFields& fields) {
    SourceField* field = names.empty() ? nullptr : fields.FindPresent(names);
    std::optional<EventTime> time = field != nullptr ? ParseEventTime(field->text) : std::nullopt;
    if (!time) {
        field = head.timeField.empty() ? nullptr : fields.FindWhole(head.timeField);
        time = ParseEventTime(head.time);
    }
    if (time && time->isExact && field != nullptr)
        field->taken = true;
    return time;
}

void TellKind(const EventHead& head, SourceItem* item) {
    item->channel = head.channel;
    item->event = head.event != 0 ? std::to_string(head.event) : std::string(head.eventName);
}

// The source's own number, so that an event that is read twice is the same event; else its place.
std::uint32_t NumberOf(const EventHead& head, std::uint32_t* counter) {
    ++*counter;
    return static_cast<std::uint32_t>(head.recordNumber.value_or(*counter));
}

// For people: what the time was that could not be read.
std::string TimeDetail(const EventHead& head) {
    std::string detail;
    if (!head.time.empty())
        AppendJsonString(head.time, &(detail = ": "));
    return detail;
}

void Refuse(std::string_view problem, std::string detail, SourceItem* item) {
    item->fate = EventFate::refused;
    item->problem = problem;
    item->detail = std::move(detail);
}

}  // namespace

bool Is(std::string_view value, std::string_view wanted) {
    return AnyOfAlternatives(wanted, [&](std::string_view one) { return value == one; });
}

bool IsNoCase(std::string_view value, std::string_view wanted) {
    return AnyOfAlternatives(wanted,
                             [&](std::string_view one) { return ZEL::EqualsNoCase(value, one); });
}

bool HasNoCase(std::string_view value, std::string_view wanted) {
    return AnyOfAlternatives(wanted, [&](std::string_view one) {
        for (std::size_t at = 0; at + one.size() <= value.size(); ++at)
            if (ZEL::StartsWithNoCase(value.substr(at), one))
                return true;
        return false;
    });
}

bool IsNot(std::string_view value, std::string_view wanted) {
    return !Is(value, wanted);
}

bool IsThere(std::string_view value, std::string_view) {
    return !value.empty();
}

bool HasRule(const MappingTable& table, std::uint32_t event, SourceFields& fields) {
    return RowFor(table, event, fields) != nullptr;
}

void SourceItem::Clear() {
    fate = EventFate::refused;
    record.clear();
    isKept = false;
    channel.clear();
    event.clear();
    problem = {};
    detail.clear();
    lostFromKey = 0;
}

void Mapper::Map(const MappingTable& table, const EventHead& head, SourceFields& fields,
                 SourceItem* item) {
    const MappingRow* const row = RowFor(table, head.event, fields);
    if (row == nullptr)
        return Pass(head, fields, item);
    item->Clear();
    const auto time = TimeOf(table.time, head, fields);
    if (!time)
        return Refuse("no time that can be read", TimeDetail(head), item);
    item->fate = EventFate::record;
    const std::uint32_t number = NumberOf(head, &mapped_);
    RecordMaking(*this, fields, item).Write(table, *row, *time, head, number);
}

// An `etw` event can hold any: it says where the event came from and what its number is.
void Mapper::Pass(const EventHead& head, SourceFields& fields, SourceItem* item) {
    item->Clear();
    item->fate = EventFate::noRule;
    TellKind(head, item);
    if (!options_.keepsAll)
        return;
    const auto time = TimeOf({}, head, fields);
    if (!time)
        return Refuse("no time that can be read", TimeDetail(head), item);
    RecordWriter writer(&item->record);
    writer.BeginObject().Key("artifacts").BeginObject().Key("target").BeginObject();
    writer.Key("object_type").Text("etw");
    if (head.event != 0)
        writer.Key("ref_event").NumberPair(head.event);
    writer.Key("source")
        .BeginObject()
        .Key("facility")
        .TextPair(head.channel.empty() ? head.format : head.channel);
    writer.EndObject().EndObject().EndObject();
    writer.Key("action").BeginArray().Text("generic").EndArray();
    writer.Key("begin_time").BeginObject().Key("value").Text(time->text).EndObject();
    writer.Key("type_id").NumberPair(*TypeIdOf("etw"));
    writer.Key("seq_num").Number(NumberOf(head, &passed_));
    WriteUnmapped(fields, writer);
    WriteSource(head, writer);
    writer.EndObject();
    item->isKept = true;
}

// Processes that are asked for again and again would stay in the older half to the end, and be lost
// with it: that costs their later events a hash and nothing else.
const Mapper::Hashes* Mapper::HashesOf(std::string_view uid) const {
    for (const KnownHashes* half : {&hashes_, &olderHashes_})
        if (const auto found = half->find(uid); found != half->end())
            return &found->second;
    return nullptr;
}

void Mapper::Remember(std::string_view uid, std::string_view sha2, std::string_view md5) {
    if (hashes_.size() >= mostHashesKept) {
        olderHashes_ = std::move(hashes_);
        hashes_.clear();
    }
    if (!sha2.empty() || !md5.empty())
        hashes_.insert_or_assign(std::string(uid), Hashes{std::string(sha2), std::string(md5)});
}

}  // namespace zel
