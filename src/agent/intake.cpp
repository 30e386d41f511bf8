#include "agent/intake.h"

#include <zlib.h>

#include <algorithm>
#include <utility>

#include "agent/memorystream.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "connection/storereports.h"
#include "records/recordtime.h"
#include "zelstore/keys/keyformat.h"

// What a request holds becomes records with their keys before it is accepted: a sender that is told
// of a bad line at once can do something about it, and what stands in the spool needs no second
// look. The store makes the key, which is where a line that is no record shows.

namespace zel {

namespace {

namespace hr = ZEL::hr;

constexpr std::size_t longestId = 512;  // as of those that a request brings; all are remembered

IntakeProblem WhyNoKey(ZEL::HRESULT result) {
    if (result == hr::unexpected)
        return {"no record", ": " + TakeReason()};
    if (result == hr::invalidArgument)
        return {"no begin_time", ""};
    if (result == hr::fail)
        return {"no target or no action", ""};
    return {"no key", ": " + Describe(static_cast<std::int32_t>(result))};
}

// The store would take such a record, and nobody would find it by its time.
IntakeProblem WhyBadTime(std::string_view key) {
    const std::string_view time = ZEL::BeginTimeOf(key);
    if (time.empty())
        return {"no begin_time", ""};
    if (!IsRecordTime(time) || !RecordTimeExists(time))
        return {"begin_time is none like 2026-11-12T10:00:00.000Z", ""};
    return {};
}

}  // namespace

Intake::Intake(ZEL::IEventStore7& store, LiveConfig::Snapshot config, std::uint64_t most)
    : store_(store),
      config_(std::move(config)),
      most_(most),
      mapper_(MappingOptions{config_->writesUnmapped, config_->keepsUnmapped, false}),
      formats_(mapper_) {}

std::string Intake::MemberId(std::string_view object) {
    if (config_->idMember.empty() || !object.starts_with('{'))
        return "";
    fields_.Clear();
    const SourceField* const field =
        json_.Read(object, &fields_) ? fields_.FindWhole(config_->idMember) : nullptr;
    const bool isId = field != nullptr && field->kind != SourceField::Kind::json &&
                      field->text.size() <= longestId;
    return isId ? std::string(field->text) : "";
}

Intake::Outcome Intake::TakeLine(std::string_view line, const std::string& given) {
    Outcome outcome{taken_.items.size(), 0, {}};
    ++lines_;
    if (line.size() > config_->lineSize) {
        outcome.problem = {"line too long", ": " + std::to_string(line.size()) + " bytes"};
        return outcome;
    }
    if (taken_.items.size() >= most_) {
        outcome.problem = {"too many events in one request", ""};
        return outcome;
    }
    const std::string id = given.empty() ? MemberId(line) : given;
    mapper_.CountFrom(static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(line.data()), line.size())));
    if (formats_.Give(line, lines_)) {
        TakeAll(id, &outcome);
    } else {
        record_.assign(line);
        TakeRecord(record_, id, &outcome);
    }
    return outcome;
}

Intake::Outcome Intake::End() {
    Outcome outcome{taken_.items.size(), 0, {}};
    formats_.End();
    TakeAll("", &outcome);
    return outcome;
}

bool Intake::TakeFile(const Format& format, std::string_view bytes, const std::string& id,
                      std::vector<std::pair<std::uint64_t, IntakeProblem>>* problems,
                      std::string* error) {
    MemoryStream stream(bytes);
    const auto source = format.makeFileReader(stream, mapper_);
    while (source->Next(&item_)) {
        Outcome outcome{taken_.items.size(), 0, {}};
        if (taken_.items.size() >= most_)
            outcome.problem = {"too many events in one request", ""};
        else
            TakeItem(item_, id.empty() ? id : id + std::to_string(item_.place), &outcome);
        if (!outcome.problem.kind.empty())
            problems->emplace_back(item_.place, outcome.problem);
    }
    *error = source->Error();
    return error->empty();
}

void Intake::TakeAll(const std::string& id, Outcome* outcome) {
    while (formats_.Next(&item_)) {
        const bool isFurther = !id.empty() && outcome->count > 0;
        TakeItem(item_, isFurther ? id + "/" + std::to_string(outcome->count) : id, outcome);
    }
}

void Intake::TakeItem(SourceItem& item, const std::string& id, Outcome* outcome) {
    if (item.fate == EventFate::record || item.isKept)
        TakeRecord(item.record, id, outcome);
    else if (item.fate == EventFate::noRule)
        outcome->problem = {"no rule makes a record of it", ": " + item.channel + " " + item.event};
    else
        outcome->problem = {item.problem, item.detail};
}

void Intake::TakeRecord(const std::string& record, const std::string& id, Outcome* outcome) {
    const auto text = wm::ToValue(record);
    ZEL::CountedPtr<ZEL::IStringValue> key;
    if (!text || record.find('\0') != record.npos) {
        outcome->problem = {text ? "holds a NUL" : "not UTF-8", ""};
        return;
    }
    const ZEL::HRESULT made = store_.MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive());
    if (Failed(made)) {
        outcome->problem = WhyNoKey(made);
        return;
    }
    SpoolItem item{id, wm::ToText(key.Get()), record};
    outcome->problem = WhyBadTime(item.key);
    if (!outcome->problem.kind.empty())
        return;
    taken_.items.push_back(std::move(item));
    ++outcome->count;
}

}  // namespace zel
