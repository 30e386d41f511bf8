#include "records/formats/ecs.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "records/formats/ecstable.h"
#include "records/formats/jsonevent.h"

namespace zel {

namespace {

constexpr std::uint64_t mostEventNumber = UINT32_MAX;

class EcsSource final : public JsonEventSource {
public:
    explicit EcsSource(Mapper& mapper) : mapper_(mapper) {}

private:
    void Read(SourceFields& fields, SourceItem* item) override;
    static EventHead HeadOf(SourceFields& fields);
    static void JoinArguments(SourceFields& fields, std::string_view process);

    Mapper& mapper_;
};

void EcsSource::Read(SourceFields& fields, SourceItem* item) {
    JoinArguments(fields, "process.");
    JoinArguments(fields, "process.parent.");
    const EventHead head = HeadOf(fields);
    mapper_.Map(ecsTable, head, fields, item);
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
