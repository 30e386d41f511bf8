#include "records/formats/ecs.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "records/formats/ecstable.h"
#include "records/formats/jsonevent.h"

namespace zel {

namespace {

constexpr std::uint64_t mostEventNumber = UINT32_MAX;

// The module for Sysmon of winlogbeat up to 7.8 takes events apart and does not say what they are
// about.
struct SysmonKind {
    std::string_view codes;  // "a|b"
    std::string_view category;
    std::string_view type;
};
constexpr SysmonKind sysmonKinds[] = {
    {"1", "process", "start"},   {"5", "process", "end"},        {"8|25", "process", "change"},
    {"10", "process", "access"}, {"3", "network", "connection"}, {"11", "file", "creation"},
    {"2|15", "file", "change"},  {"23|26", "file", "deletion"},  {"12|13|14", "registry", "change"},
};

class EcsSource final : public JsonEventSource {
public:
    explicit EcsSource(Mapper& mapper) : mapper_(mapper) {}

private:
    void Read(SourceFields& fields, SourceItem* item) override;
    static void TellCategory(SourceFields& fields);
    static EventHead HeadOf(SourceFields& fields);
    static void JoinArguments(SourceFields& fields, std::string_view process);

    Mapper& mapper_;
};

void EcsSource::Read(SourceFields& fields, SourceItem* item) {
    TellCategory(fields);
    JoinArguments(fields, "process.");
    JoinArguments(fields, "process.parent.");
    const EventHead head = HeadOf(fields);
    mapper_.Map(ecsTable, head, fields, item);
}

void EcsSource::TellCategory(SourceFields& fields) {
    const SourceField* const sender = fields.FindPresent("event.provider|event.module");
    const SourceField* const number = fields.FindPresent("event.code|winlog.event_id");
    if (sender == nullptr || !HasNoCase(sender->text, "sysmon") || number == nullptr ||
        fields.Has("event.category"))
        return;
    const std::string_view code = number->text;
    for (const SysmonKind& kind : sysmonKinds) {
        if (!Is(code, kind.codes))
            continue;
        fields.AddText("event.category", kind.category).taken = true;
        fields.AddText("event.type", kind.type).taken = true;
        return;
    }
}

EventHead EcsSource::HeadOf(SourceFields& fields) {
    EventHead head;
    head.format = "ecs";
    head.channel = TakeFirst(fields, "winlog.channel|event.dataset|event.module");
    const auto code = TakeNumber(fields, "winlog.event_id|event.code", mostEventNumber);
    head.event = static_cast<std::uint32_t>(code.value_or(0));
    if (const SourceField* const action = fields.FindPresent("event.action"))
        head.eventName = action->text;
    head.computer = TakeFirst(fields, "host.name|host.hostname|winlog.computer_name");
    head.timeField = "@timestamp";
    if (const SourceField* const time = fields.FindWhole(head.timeField))
        head.time = time->text;
    head.recordNumber = TakeNumber(fields, "winlog.record_id|event.sequence|auditd.sequence");
    return head;
}

// Some senders give a command line only in parts. The parts stay, since what is joined does not
// tell where one ends.
void EcsSource::JoinArguments(SourceFields& fields, std::string_view process) {
    const std::string_view lineName = fields.Keep(process, "command_line");
    const std::string_view partsName = fields.Keep(process, "args");
    SourceField* line = fields.FindWhole(lineName);
    if (line != nullptr && !line->IsAbsent())
        return;
    std::string joined;
    for (const SourceField& part : fields.All()) {
        if (part.name == partsName && part.kind == SourceField::Kind::text)
            joined.append(joined.empty() ? "" : " ").append(part.text);
    }
    if (joined.empty())
        return;
    if (line == nullptr)
        line = &fields.AddText(lineName, {});
    line->text = fields.Keep(joined);
    line->kind = SourceField::Kind::text;
    line->taken = true;
}

}  // namespace

bool KnowsEcs(const SourceLine& line) {
    return line.fields != nullptr &&
           (line.fields->Has("ecs.version") || line.fields->Has("event.category")) &&
           line.fields->Has("@timestamp");
}

std::unique_ptr<LineSource> MakeEcs(Mapper& mapper) {
    return std::make_unique<EcsSource>(mapper);
}

}  // namespace zel
