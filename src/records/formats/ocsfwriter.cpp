#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "records/conversions.h"
#include "records/eventtime.h"
#include "records/formats/ocsf.h"
#include "records/formats/ocsftable.h"
#include "records/jsonfields.h"
#include "records/recordwriter.h"

// The table read backwards. A record's members become attributes with dotted names, as the table
// has them; in the order of their names the members of one object stand behind one another, because
// a dot sorts ahead of all that names are made of. What no row takes is written below `unmapped`,
// under the name that it has in the record.

namespace zel {

namespace {

using Kind = SourceField::Kind;
using Part = SourceField::Part;

constexpr std::string_view schemaVersion = "1.3.0";
constexpr std::string_view unmapped = "unmapped";
constexpr std::string_view hashes = ".hashes.";

std::string Quoted(std::string_view text) {
    std::string json;
    AppendJsonString(text, &json);
    return json;
}

std::string JsonOf(const SourceField& field) {
    return field.kind == Kind::text ? Quoted(field.text) : std::string(field.text);
}

std::string_view FirstOf(std::string_view alternatives) {
    return alternatives.substr(0, alternatives.find_first_of("|+"));
}

bool IsPlain(Conversion conversion) {
    return conversion == Conversion::plainText || conversion == Conversion::plainNumber ||
           conversion == Conversion::registryType || conversion == Conversion::constant;
}

// Attributes, put into nested objects.
class Attributes {
public:
    void Clear() { all_.clear(); }
    void AddJson(std::string_view name, std::string json) {
        all_.emplace_back(name, std::move(json));
    }
    void AddText(std::string_view name, std::string_view text) { AddJson(name, Quoted(text)); }
    void AddNumber(std::string_view name, std::uint64_t number) {
        AddJson(name, std::to_string(number));
    }
    // One more in the array of this name.
    void AddItem(std::string_view name, const std::string& json);
    bool Has(std::string_view name) const;
    void Write(std::string* out);

private:
    std::vector<std::pair<std::string, std::string>> all_;
};

bool Attributes::Has(std::string_view name) const {
    return std::any_of(all_.begin(), all_.end(),
                       [&](const auto& attribute) { return attribute.first == name; });
}

void Attributes::AddItem(std::string_view name, const std::string& json) {
    for (auto& [known, array] : all_) {
        if (known == name) {
            array.insert(array.size() - 1, "," + json);
            return;
        }
    }
    AddJson(name, "[" + json + "]");
}

void Attributes::Write(std::string* out) {
    std::sort(all_.begin(), all_.end());
    RecordWriter writer(out);
    writer.BeginObject();
    std::vector<std::string_view> open;
    for (const auto& [name, json] : all_) {
        std::string_view rest = name;
        std::size_t depth = 0;
        while (depth < open.size() && rest.starts_with(open[depth]) &&
               rest.substr(open[depth].size()).starts_with('.'))
            rest.remove_prefix(open[depth++].size() + 1);
        for (; open.size() > depth; open.pop_back())
            writer.EndObject();
        for (auto dot = rest.find('.'); dot != rest.npos; dot = rest.find('.')) {
            open.push_back(rest.substr(0, dot));
            writer.Key(open.back()).BeginObject();
            rest.remove_prefix(dot + 1);
        }
        writer.Key(rest).Json(json);
    }
    for (std::size_t i = 0; i <= open.size(); ++i)
        writer.EndObject();
}

}  // namespace

struct OcsfWriter::Working {
    JsonFields reader;
    SourceFields fields;
    Attributes attributes;

    std::size_t IndexOf(const SourceField& field) const;
    bool IsOnlyValue(const SourceField& field) const;
    std::string_view TextOf(std::string_view member);
    void Move(std::string_view member, std::string_view attribute);
    void MoveAsText(std::string_view member, std::string_view attribute);

    void AddClass(const OcsfClass& its, std::uint32_t activity, std::string_view action);
    void AddRow(const MappingRow& row, std::string_view action);
    void AddObject(std::string_view role, std::string_view type, std::span<const Member> members);
    void AddMember(const std::string& place, const Member& member);
    void AddHash(std::string_view attribute, std::string_view value);
    void AddRegistryType(std::string_view attribute, SourceField& field);
    std::string_view KeyOf(std::string_view path, const std::string& place);
    void AddHead();
    void TakeTypeId(std::string_view objectType);
    void AddRest();
};

std::size_t OcsfWriter::Working::IndexOf(const SourceField& field) const {
    return static_cast<std::size_t>(&field - fields.All().data());
}

bool OcsfWriter::Working::IsOnlyValue(const SourceField& field) const {
    const std::size_t next = IndexOf(field) + 1;
    return field.part != Part::further &&
           (next == fields.All().size() || fields.All()[next].part != Part::further);
}

std::string_view OcsfWriter::Working::TextOf(std::string_view member) {
    const SourceField* const field = fields.FindWhole(member);
    return field == nullptr ? std::string_view{} : field->text;
}

// A member of the record that is an attribute as it stands. One with more values than the attribute
// can have stays among the rest as well.
void OcsfWriter::Working::Move(std::string_view member, std::string_view attribute) {
    SourceField* const field = fields.FindWhole(member);
    if (field == nullptr || field->IsAbsent())
        return;
    attributes.AddJson(attribute, JsonOf(*field));
    field->taken = IsOnlyValue(*field);
}

void OcsfWriter::Working::MoveAsText(std::string_view member, std::string_view attribute) {
    SourceField* const field = fields.FindWhole(member);
    if (field == nullptr || field->IsAbsent())
        return;
    attributes.AddText(attribute, field->text);
    field->taken = IsOnlyValue(*field);
}

void OcsfWriter::Working::AddClass(const OcsfClass& its, std::uint32_t activity,
                                   std::string_view action) {
    attributes.AddNumber("class_uid", its.uid);
    attributes.AddText("class_name", its.name);
    attributes.AddNumber("category_uid", its.category);
    attributes.AddNumber("activity_id", activity);
    attributes.AddNumber("type_uid", std::uint64_t{its.uid} * 100 + activity);
    if (activity == otherActivity)
        attributes.AddText("activity_name", action);
}

void OcsfWriter::Working::AddRow(const MappingRow& row, std::string_view action) {
    const std::uint32_t activity = row.action == action ? ActivityOf(row.events[0]) : otherActivity;
    for (const OcsfClass& its : OcsfClasses()) {
        if (its.uid == ClassOf(row.events[0]))
            AddClass(its, activity, action);
    }
    AddObject("actor", "process", row.actor);
    AddObject("target", row.objectType, row.target);
    AddObject("result", row.objectType, row.result);
    for (const Condition& condition : row.conditions) {
        if (condition.test == Is && !attributes.Has(condition.field))
            attributes.AddJson(condition.field, std::string(condition.wanted));
    }
    SourceField* const first = fields.FindWhole("action");
    if (first != nullptr)
        first->taken = IsOnlyValue(*first);
    Move("correlation_uid.value", row.correlation);
}

void OcsfWriter::Working::AddObject(std::string_view role, std::string_view type,
                                    std::span<const Member> members) {
    const std::string place = "artifacts." + std::string(role) + ".";
    if (SourceField* const its = fields.FindWhole(place + "object_type"))
        its->taken = its->text == type;
    for (const Member& member : members)
        AddMember(place, member);
}

void OcsfWriter::Working::AddMember(const std::string& place, const Member& member) {
    const std::string name =
        place + std::string(member.name) + (IsPlain(member.conversion) ? "" : ".value");
    SourceField* const field = fields.FindWhole(name);
    if (field == nullptr || field->IsAbsent())
        return;
    const std::string_view attribute = FirstOf(member.from);
    if (member.conversion == Conversion::constant) {
        field->taken = IsOnlyValue(*field) && "[" + Quoted(field->text) + "]" == member.from;
        return;
    }
    if (member.conversion == Conversion::registryType)
        return AddRegistryType(attribute, *field);
    if (const auto dot = member.from.find(hashes); dot != member.from.npos)
        AddHash(member.from, field->text);
    else if (member.conversion == Conversion::registryPath &&
             member.from.find('+') != member.from.npos)
        attributes.AddText(attribute, KeyOf(field->text, place));
    else if (member.conversion == Conversion::number)
        attributes.AddJson(attribute, JsonOf(*field));
    else
        attributes.AddText(attribute, field->text);
    field->taken = IsOnlyValue(*field);
}

// FILE.hashes.SHA-256 is one of the objects in FILE.hashes.
void OcsfWriter::Working::AddHash(std::string_view attribute, std::string_view value) {
    const std::size_t end = attribute.rfind('.');
    const std::string_view algorithm = attribute.substr(end + 1);
    std::string json;
    RecordWriter(&json)
        .BeginObject()
        .Key("algorithm_id")
        .Number(algorithm == "MD5" ? 1 : 3)
        .Key("algorithm")
        .Text(algorithm)
        .Key("value")
        .Text(value)
        .EndObject();
    attributes.AddItem(attribute.substr(0, end), json);
}

void OcsfWriter::Working::AddRegistryType(std::string_view attribute, SourceField& field) {
    for (const OcsfRegistryType& type : OcsfRegistryTypes()) {
        if (field.text != std::to_string(type.windows))
            continue;
        attributes.AddText(attribute, type.name);
        attributes.AddNumber(std::string(attribute) + "_id", type.ocsf);
        field.taken = true;
        return;
    }
}

// The path of a value without the value's name, which the schema keeps apart.
std::string_view OcsfWriter::Working::KeyOf(std::string_view path, const std::string& place) {
    const std::string_view name = TextOf(place + "name.value");
    const bool hasName = !name.empty() && path.ends_with(name) && path.size() > name.size() &&
                         path[path.size() - name.size() - 1] == '\\';
    return hasName ? path.substr(0, path.size() - name.size() - 1) : path;
}

void OcsfWriter::Working::AddHead() {
    attributes.AddNumber("severity_id", 1);
    attributes.AddText("metadata.version", schemaVersion);
    attributes.AddText("metadata.product.name", ocsfProduct);
    MoveAsText("source.format", "metadata.log_provider");
    MoveAsText("source.channel", "metadata.log_name");
    MoveAsText("source.event_id", "metadata.event_code");
    MoveAsText("source.record_id", "metadata.uid");
    MoveAsText("source.computer", "device.hostname");
    if (attributes.Has("device.hostname"))
        attributes.AddNumber("device.type_id", 0);
    Move("seq_num", "metadata.sequence");
}

// It follows from the object.
void OcsfWriter::Working::TakeTypeId(std::string_view objectType) {
    SourceField* const number = fields.FindWhole("type_id.value");
    const auto expected = TypeIdOf(objectType);
    if (number != nullptr && expected)
        number->taken = IsOnlyValue(*number) && number->text == std::to_string(*expected);
}

// What is left of the record, in its order.
void OcsfWriter::Working::AddRest() {
    std::string rest;
    RecordWriter writer(&rest);
    writer.BeginObject();
    const std::size_t empty = rest.size();
    const auto all = fields.All();
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::string_view name = all[i].name;
        if (all[i].taken || all[i].part == Part::further || (name == unmapped && all[i].IsAbsent()))
            continue;
        if (name.starts_with(unmapped) && name.substr(unmapped.size()).starts_with('.'))
            name.remove_prefix(unmapped.size() + 1);
        else
            name = fields.Keep("record.", name);
        writer.Key(name);
        if (all[i].part == Part::alone) {
            writer.Json(JsonOf(all[i]));
            continue;
        }
        writer.BeginArray();
        do {
            writer.Json(JsonOf(all[i]));
        } while (++i < all.size() && all[i].part == Part::further);
        --i;
        writer.EndArray();
    }
    const bool isEmpty = rest.size() == empty;
    writer.EndObject();
    if (!isEmpty)
        attributes.AddJson(unmapped, std::move(rest));
}

OcsfWriter::OcsfWriter() : working_(std::make_unique<Working>()) {}

OcsfWriter::~OcsfWriter() = default;

bool OcsfWriter::Write(std::string_view record, std::string* out) {
    Working& w = *working_;
    w.fields.Clear();
    w.attributes.Clear();
    if (!w.reader.Read(record, &w.fields)) {
        error_ = w.reader.Error();
        return false;
    }
    SourceField* const time = w.fields.FindWhole("begin_time.value");
    const auto milliseconds = time != nullptr ? MillisecondsIn(time->text) : std::nullopt;
    if (!milliseconds) {
        error_ = "no begin_time that can be read";
        return false;
    }
    w.attributes.AddJson("time", std::to_string(*milliseconds));
    const std::string_view action = w.TextOf("action");
    const std::string_view type = w.TextOf("artifacts.target.object_type");
    const MappingRow* const row =
        OcsfActionNamed(action).empty() ? nullptr : OcsfRowFor(type, action);
    w.AddHead();
    if (row == nullptr) {
        w.AddClass({"Base Event", 0, 0}, otherActivity, action);
        w.attributes.AddText("raw_data", record);
    } else {
        time->taken = true;
        w.AddRow(*row, action);
        w.TakeTypeId(type);
        w.AddRest();
    }
    w.attributes.Write(out);
    return true;
}

}  // namespace zel
