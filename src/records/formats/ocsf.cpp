#include "records/formats/ocsf.h"

#include <charconv>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "records/eventtime.h"
#include "records/formats/jsonevent.h"
#include "records/formats/ocsftable.h"
#include "records/jsonfields.h"

namespace zel {

namespace {

constexpr std::string_view hashes = ".hashes";
constexpr std::string_view unmapped = "unmapped.";
constexpr std::uint64_t mostUid = 99'999'999;

class OcsfSource final : public JsonEventSource {
public:
    explicit OcsfSource(Mapper& mapper) : mapper_(mapper) {}

private:
    void Read(SourceFields& fields, SourceItem* item) override;
    EventHead HeadOf(SourceFields& fields);
    void SpreadHashes(SourceFields& fields);
    bool AddHash(std::string_view list, std::string_view hash, SourceFields& fields);
    static void NameRegistryType(SourceFields& fields);
    static void LiftUnmapped(SourceFields& fields);
    bool TakeWhole(SourceFields& fields, SourceItem* item);
    std::span<const MappingRow> RowsByName(const EventHead& head, SourceFields& fields);

    Mapper& mapper_;
    JsonFields inner_;
    SourceFields item_;
    std::vector<std::string> items_;
    std::vector<MappingRow> namedRows_;
};

void OcsfSource::Read(SourceFields& fields, SourceItem* item) {
    if (TakeWhole(fields, item))
        return;
    SpreadHashes(fields);
    NameRegistryType(fields);
    LiftUnmapped(fields);
    const EventHead head = HeadOf(fields);
    const std::span<const MappingRow> named = RowsByName(head, fields);
    mapper_.Map(named.empty() ? ocsfTable : MappingTable{named, {}, false}, head, fields, item);
}

// A record that no class fits, as the writer has written it.
bool OcsfSource::TakeWhole(SourceFields& fields, SourceItem* item) {
    const SourceField* const product = fields.FindWhole("metadata.product.name");
    const SourceField* const record = fields.FindWhole("raw_data");
    if (product == nullptr || product->text != ocsfProduct || record == nullptr)
        return false;
    item_.Clear();
    const bool isRecord = record->text.find_first_of("\r\n") == record->text.npos &&
                          inner_.Read(record->text, &item_) && item_.Has("artifacts") &&
                          item_.Has("action") && ParseEventTime(item_.Take("begin_time.value"));
    if (!isRecord)
        return false;
    item->fate = EventFate::record;
    item->record = record->text;
    return true;
}

EventHead OcsfSource::HeadOf(SourceFields& fields) {
    EventHead head;
    head.format = "ocsf";
    head.channel = TakeFirst(fields, "metadata.log_name|class_name|metadata.product.name");
    const auto uid = TakeNumber(fields, "class_uid", mostUid / 100);
    const auto activity = TakeNumber(fields, "activity_id", otherActivity);
    if (uid) {
        head.event = static_cast<std::uint32_t>(*uid * 100 + activity.value_or(0));
        if (SourceField* const type = fields.FindWhole("type_uid");
            type != nullptr && type->text == std::to_string(head.event))
            type->taken = true;
    }
    head.computer = TakeFirst(fields, "device.hostname|device.name");
    head.recordNumber = TakeNumber(fields, "metadata.sequence");
    head.timeField = "time";
    const SourceField* const time = fields.FindWhole(head.timeField);
    if (time == nullptr)
        return head;
    std::int64_t milliseconds = 0;
    const char* const end = time->text.data() + time->text.size();
    const auto [at, failure] = std::from_chars(time->text.data(), end, milliseconds);
    const bool isNumber = failure == std::errc() && at == end;
    const auto exact = isNumber ? EventTimeOfMilliseconds(milliseconds) : std::nullopt;
    head.time = exact ? fields.Keep(exact->text) : time->text;
    return head;
}

// An activity that the schema has no number for is told by its name, and those of records keep
// their action. What has failed does not, since it has done nothing. Empty for all others.
std::span<const MappingRow> OcsfSource::RowsByName(const EventHead& head, SourceFields& fields) {
    const SourceField* const status = fields.FindPresent("status_id");
    const bool hasFailed = status != nullptr && status->text == ocsfFailure;
    SourceField* const name = fields.FindPresent("activity_name");
    std::string_view action;
    if (hasFailed) {
        action = "generic";
    } else if (ActivityOf(head.event) == otherActivity && name != nullptr) {
        action = OcsfActionNamed(name->text);
        name->taken = !action.empty();
    }
    namedRows_.clear();
    const std::uint32_t other = ClassOf(head.event) * 100 + otherActivity;
    for (const MappingRow& row : ocsfTable.rows) {
        if (row.events[0] != other || action.empty())
            continue;
        namedRows_.push_back(row);
        namedRows_.back().events = {};
        namedRows_.back().action = action;
    }
    return namedRows_;
}

// The hashes of a file, [{"algorithm_id":3,"value":".."}], as fields FILE.hashes.SHA-256.
void OcsfSource::SpreadHashes(SourceFields& fields) {
    for (std::size_t i = 0; i < fields.All().size(); ++i) {
        const SourceField field = fields.All()[i];
        if (field.kind != SourceField::Kind::json || !field.name.ends_with(hashes) ||
            field.IsAbsent() || !inner_.Split(field.text, &items_))
            continue;
        bool isWhole = true;
        for (const std::string& hash : items_)
            isWhole = AddHash(field.name, hash, fields) && isWhole;
        fields.All()[i].taken = isWhole;
    }
}

// False when there is more in it than the field says.
bool OcsfSource::AddHash(std::string_view list, std::string_view hash, SourceFields& fields) {
    item_.Clear();
    if (!inner_.Read(hash, &item_))
        return false;
    const std::string_view value = item_.Take("value");
    const std::string_view id = item_.Take("algorithm_id");
    const std::string_view algorithm = id == "1" ? "MD5" : id == "3" ? "SHA-256" : "";
    const std::string_view name = item_.Take("algorithm");
    if (value.empty() || algorithm.empty())
        return false;
    const auto kept = fields.Keep(fields.Keep(list, "."), algorithm);
    // What a row uses is no more than the list says; what none uses stays in the list.
    fields.AddText(kept, fields.Keep(value)).taken = true;
    return name.empty() || name == algorithm;
}

// The schema numbers the types of registry values in an order of its own.
void OcsfSource::NameRegistryType(SourceFields& fields) {
    SourceField* const number = fields.FindPresent("reg_value.type_id");
    if (number == nullptr || fields.FindPresent("reg_value.type") != nullptr)
        return;
    for (const OcsfRegistryType& type : OcsfRegistryTypes()) {
        if (number->text != std::to_string(type.ocsf))
            continue;
        number->taken = true;
        fields.AddText("reg_value.type", type.name);
        return;
    }
}

// What the event's own maker had no place for keeps the names that it had there.
void OcsfSource::LiftUnmapped(SourceFields& fields) {
    constexpr std::size_t mostLifted = 4096;  // each is looked for among all
    if (fields.All().size() > mostLifted)
        return;
    for (SourceField& field : fields.All()) {
        if (!field.name.starts_with(unmapped))
            continue;
        const std::string_view name = field.name.substr(unmapped.size());
        if (fields.FindWhole(name) == nullptr)
            field.name = name;
    }
}

}  // namespace

bool KnowsOcsf(const SourceLine& line) {
    return line.fields != nullptr && line.fields->Has("class_uid") &&
           (line.fields->Has("activity_id") || line.fields->Has("metadata"));
}

std::unique_ptr<LineSource> MakeOcsf(Mapper& mapper) {
    return std::make_unique<OcsfSource>(mapper);
}

}  // namespace zel
