#include "records/recordmaking.h"

#include <algorithm>

#include "records/conversions.h"

// The members of a row are written one by one, each by its conversion. Whether a field was written
// wholly is for that to say: a list of hashes of which two were taken still has the others, and a
// number that was cut still has its rest.

namespace zel {

namespace {

using Kind = SourceField::Kind;
using Part = SourceField::Part;

// What makes a process more than a number, which the store would not take.
bool IsIdentity(std::string_view member) {
    return member == "path" || member == "uid" || member == "cmd_line" || member == "sha2" ||
           member == "md5";
}

// The members of which keys are made.
bool IsInKey(std::string_view member) {
    return member == "path" || member == "uid" || member == "sha2" || member == "name" ||
           member == "src_ip" || member == "dst_ip" || member == "correlation_uid";
}

void WriteField(const SourceField& field, RecordWriter& writer) {
    if (field.kind == Kind::text)
        writer.Text(field.text);
    else
        writer.Json(field.text);
}

}  // namespace

void WriteUnmapped(SourceFields& fields, RecordWriter& writer) {
    fields.GatherOuterNames();
    writer.Key("unmapped").BeginObject();
    for (SourceField& field : fields.All()) {
        if (field.taken || field.part == Part::further)
            continue;
        writer.Key(fields.ShownName(field));
        if (field.part == Part::alone) {
            WriteField(field, writer);
            continue;
        }
        writer.BeginArray();
        for (const SourceField& value : ValuesOf(field, fields))
            WriteField(value, writer);
        writer.EndArray();
    }
    writer.EndObject();
}

void WriteSource(const EventHead& head, RecordWriter& writer) {
    writer.Key("source").BeginObject().Key("format").Text(head.format);
    if (!head.channel.empty())
        writer.Key("channel").Text(head.channel);
    if (head.event != 0)
        writer.Key("event_id").Number(head.event);
    else if (!head.eventName.empty())
        writer.Key("event_id").Text(head.eventName);
    if (!head.computer.empty())
        writer.Key("computer").Text(head.computer);
    if (head.recordNumber)
        writer.Key("record_id").Number(*head.recordNumber);
    writer.EndObject();
}

// The values of an array stand behind one another; a field that stands alone is its only value.
std::span<SourceField> ValuesOf(SourceField& first, SourceFields& fields) {
    const std::span<SourceField> all = fields.All();
    const auto begin = static_cast<std::size_t>(&first - all.data());
    std::size_t end = begin + 1;
    while (first.part == Part::first && end < all.size() && all[end].part == Part::further)
        ++end;
    return all.subspan(begin, end - begin);
}

void RecordMaking::Write(const MappingTable& table, const MappingRow& row, const EventTime& time,
                         const EventHead& head, std::uint32_t number) {
    carriesHashes_ = table.carriesHashes;
    writer_.BeginObject().Key("artifacts").BeginObject();
    // The launched process is the target, so the hashes of a launch are taken behind that.
    if (HasIdentity(row.actor))
        Object("actor", "process", row.actor);
    Object("target", row.objectType, row.target);
    const bool isLaunched = row.action == "launch";
    if (isLaunched && carriesHashes_ && !seen_.uid.empty())
        mapper_.Remember(seen_.uid, seen_.sha2, seen_.md5);
    if (!row.result.empty())
        Object("result", row.objectType, row.result);
    writer_.EndObject().Key("action").BeginArray().Text(row.action).EndArray();
    writer_.Key("begin_time").BeginObject().Key("value").Text(time.text).EndObject();
    if (const auto typeId = TypeIdOf(row.objectType))
        writer_.Key("type_id").NumberPair(*typeId);
    if (!row.correlation.empty())
        Correlation(row.correlation);
    writer_.Key("seq_num").Number(number);
    if (mapper_.Options().writesUnmapped) {
        WriteUnmapped(fields_, writer_);
        WriteSource(head, writer_);
    }
    writer_.EndObject();
}

// An actor that is a number alone would make the record one that the store's checks refuse; its
// number stays in `unmapped`.
bool RecordMaking::HasIdentity(std::span<const Member> members) {
    return std::any_of(members.begin(), members.end(), [&](const Member& member) {
        if (!IsIdentity(member.name))
            return false;
        if (member.conversion == Conversion::constant)
            return true;
        const SourceField* const field = fields_.FindPresent(member.from);
        return field != nullptr &&
               (member.conversion != Conversion::guid || GuidIn(field->text).has_value());
    });
}

void RecordMaking::Object(std::string_view role, std::string_view type,
                          std::span<const Member> members) {
    seen_ = {};
    writer_.Key(role).BeginObject().Key("object_type").Text(type);
    for (const Member& member : members)
        Write(member);
    if (carriesHashes_ && type == "process")
        CarryHashes();
    writer_.EndObject();
}

// The hashes of a launch belong to the process, so its later events get them as well.
void RecordMaking::CarryHashes() {
    const Mapper::Hashes* const known =
        seen_.uid.empty() || !seen_.sha2.empty() || !seen_.md5.empty()
            ? nullptr
            : mapper_.HashesOf(seen_.uid);
    if (known == nullptr)
        return;
    if (!known->md5.empty())
        writer_.Key("md5").TextPair(known->md5);
    if (!known->sha2.empty())
        writer_.Key("sha2").TextPair(known->sha2);
}

void RecordMaking::Write(const Member& member) {
    if (member.conversion == Conversion::constant) {
        writer_.Key(member.name).Json(member.from);
        return;
    }
    if (member.from.find('+') != member.from.npos) {
        WriteJoined(member);
        return;
    }
    SourceField* const field = fields_.FindPresent(member.from);
    if (field == nullptr)
        return;
    switch (member.conversion) {
        case Conversion::text:
        case Conversion::plainText:
            return WriteText(member, *field);
        case Conversion::sha256:
            return WriteHash(member, *field, "SHA256");
        case Conversion::md5:
            return WriteHash(member, *field, "MD5");
        case Conversion::guid:
            return WriteGuid(member, *field);
        case Conversion::registryPath:
        case Conversion::registryName:
            return WritePath(member, *field);
        case Conversion::registryType:
            return WriteType(member, *field);
        default:
            return WriteNumber(member, *field);
    }
}

// What the key loses is only counted: the record has it still.
void RecordMaking::PairOf(std::string_view name, std::string_view text) {
    item_.lostFromKey += IsInKey(name) && IsLostFromKey(text) ? 1 : 0;
    writer_.Key(name).TextPair(text);
}

// An array gives a pair with all its values.
void RecordMaking::WriteText(const Member& member, SourceField& field) {
    const std::span<SourceField> values = ValuesOf(field, fields_);
    if (member.conversion == Conversion::plainText) {
        writer_.Key(member.name).Text(field.text);
        field.taken = values.size() == 1;
        return;
    }
    if (values.size() == 1) {
        PairOf(member.name, field.text);
    } else {
        writer_.Key(member.name).BeginObject().Key("value").BeginArray();
        for (const SourceField& value : values)
            writer_.Text(value.text);
        writer_.EndArray().EndObject();
    }
    for (SourceField& value : values)
        value.taken = true;
    if (member.name == "uid")
        seen_.uid = field.text;
    else if (member.name == "sha2")
        seen_.sha2 = field.text;
    else if (member.name == "md5")
        seen_.md5 = field.text;
}

// Other algorithms of the list have no member, so unless there are none the whole list is kept.
void RecordMaking::WriteHash(const Member& member, SourceField& field, std::string_view algorithm) {
    const auto found = HashIn(field.text, algorithm);
    if (!found)
        return;
    const std::string_view hash = *found;
    PairOf(member.name, hash);
    if (member.name == "md5")
        seen_.md5 = hash;
    else
        seen_.sha2 = hash;
    field.taken = HasOnlyKeptHashes(field.text);
}

void RecordMaking::WriteGuid(const Member& member, SourceField& field) {
    const auto guid = GuidIn(field.text);
    if (!guid)
        return;
    PairOf(member.name, *guid);
    if (member.name == "uid")
        seen_.uid = *guid;
    field.taken = true;
}

void RecordMaking::WritePath(const Member& member, SourceField& field) {
    if (member.conversion == Conversion::registryName) {
        PairOf(member.name, field.text.substr(field.text.rfind('\\') + 1));
        return;  // the path has it as well
    }
    const RegistryPath path = LongRegistryPath(field.text);
    PairOf(member.name, path.root.empty() ? path.rest : fields_.Keep(path.root, path.rest));
    field.taken = true;
}

// "a+b": a path and the name below it.
void RecordMaking::WriteJoined(const Member& member) {
    const std::size_t plus = member.from.find('+');
    SourceField* const path = fields_.FindPresent(member.from.substr(0, plus));
    SourceField* const name = fields_.FindPresent(member.from.substr(plus + 1));
    if (path == nullptr)
        return;
    const RegistryPath front = member.conversion == Conversion::registryPath
                                   ? LongRegistryPath(path->text)
                                   : RegistryPath{"", path->text};
    std::string_view whole = fields_.Keep(front.root, front.rest);
    if (name != nullptr)
        whole = fields_.Keep(fields_.Keep(whole, "\\"), name->text);
    PairOf(member.name, whole);
    path->taken = true;
    if (name != nullptr)
        name->taken = true;
}

// A value whose text tells no type is a text.
void RecordMaking::WriteType(const Member& member, SourceField& field) {
    constexpr std::uint32_t text = 1;
    const auto type = RegistryTypeIn(field.text);
    writer_.Key(member.name).Number(type.value_or(text));
    field.taken = field.taken || (type && !field.text.ends_with(')'));
}

// A text that is no number is no member, and stays in `unmapped`.
void RecordMaking::WriteNumber(const Member& member, SourceField& field) {
    const bool isPlain = member.conversion == Conversion::plainNumber ||
                         member.conversion == Conversion::plainNumbers;
    const auto number = isPlain ? ServiceNumberIn(field.text) : NumberIn(field.text);
    if (!number)
        return;
    writer_.Key(member.name);
    constexpr std::uint64_t low = 0xFFFFFFFF;
    if (member.conversion == Conversion::plainNumber)
        writer_.Number(*number);
    else if (member.conversion == Conversion::plainNumbers)
        writer_.BeginArray().Number(*number).EndArray();
    else if (member.conversion == Conversion::low32)
        writer_.NumberPair(*number & low);
    else
        writer_.NumberPair(*number);
    field.taken = field.part == Part::alone && *number <= low;
}

// Mostly the identifier of a process, which the actor has as well.
void RecordMaking::Correlation(std::string_view name) {
    SourceField* const field = fields_.FindPresent(name);
    const auto guid = field != nullptr ? GuidIn(field->text) : std::nullopt;
    if (!guid)
        return;
    PairOf("correlation_uid", *guid);
    field->taken = field->part == Part::alone;
}

}  // namespace zel
