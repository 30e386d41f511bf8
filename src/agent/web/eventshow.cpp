#include "agent/web/eventshow.h"

#include <simdjson.h>

#include <memory>
#include <optional>

#include "common/asciicase.h"
#include "common/textbridge.h"
#include "questions/narrowing.h"
#include "questions/textsearch.h"
#include "records/recordwriter.h"
#include "zelstore/keys/keyformat.h"

namespace zel {

namespace {

namespace hr = ZEL::hr;

// A row's texts, kept.
struct OneEvent {
    std::string text, enrichments;
};

// The time in the key says where to look.
std::optional<OneEvent> FindEvent(QuestionWork& work, const std::string& key) {
    Narrowing narrowing;
    narrowing.since = narrowing.until = ZEL::BeginTimeOf(key);
    const std::string document = R"({"event_query":{"events":[)" + SubQueryOf(narrowing) +
                                 R"(],"include_enrichments":true}})";
    std::optional<OneEvent> found;
    ZEL::IgnoreResult(
        work.Walk(document,
                  [&](const ZEL::QueryRow& row) {
                      if (!found && row.key == key)
                          found = {std::string(row.text), std::string(row.enrichments)};
                      return found ? hr::nothingToDo : hr::ok;
                  }),
        "what was found counts");
    if (!found)
        work.Refuse(work.IsOver() ? "the question was ended before the event was found\n"
                                  : "there is no event with that key\n");
    return found;
}

bool IsJson(const std::string& text) {
    simdjson::dom::parser parser;
    return parser.parse(text).error() == simdjson::SUCCESS;
}

// Rules that have changed since, or are not those of the service, are not explained.
void WriteHits(RecordWriter& writer, const OneEvent& event, const CountContext& context) {
    const std::vector<RuleMark> marks = RuleMarksIn(event.enrichments);
    std::map<std::string, std::vector<std::string>> reasons;
    if (!marks.empty() && context.explain)
        reasons = context.explain(event.text);
    writer.Key("hits").BeginArray();
    for (const RuleMark& mark : marks) {
        writer.BeginObject().Key("id").Text(mark.id).Key("title").Text(mark.title);
        writer.Key("level").Text(mark.level).Key("explain");
        const auto reason = reasons.find(mark.Name());
        writer.BeginArray();
        if (reason != reasons.end())
            for (const std::string& line : reason->second)
                writer.Text(line);
        writer.EndArray().EndObject();
    }
    writer.EndArray();
}

std::optional<std::string_view> ColumnOf(RecordReader& event, const char* name) {
    return event.Value(*FindColumn(name));
}

// Whether events are by or about one process.
class SameProcess {
public:
    // Of an event that was read; null where it tells no process.
    static std::shared_ptr<SameProcess> As(RecordReader& event) {
        const auto action = ColumnOf(event, "action");
        const bool isOfTarget =
            ColumnOf(event, "object") == "process" && (action == "launch" || action == "terminate");
        const auto uid = ColumnOf(event, isOfTarget ? "target_uid" : "actor_uid");
        const auto pid = ColumnOf(event, isOfTarget ? "target_pid" : "actor_pid");
        if (!uid && !pid)
            return nullptr;
        return std::make_shared<SameProcess>(uid.has_value(), std::string(uid ? *uid : *pid),
                                             std::string(ColumnOf(event, "computer").value_or("")));
    }
    SameProcess(bool isUid, std::string wanted, std::string computer)
        : isUid_(isUid),
          wanted_(std::move(wanted)),
          computer_(std::move(computer)),
          search_(wanted_) {}

    bool Fits(std::string_view text) {
        if (!search_.IsIn(text) || !reader_.Read(text))
            return false;
        const auto is = [this](const char* column) {
            const auto value = ColumnOf(reader_, column);
            return value && ZEL::EqualsNoCase(*value, wanted_);
        };
        if (isUid_)
            return is("actor_uid") || is("target_uid");
        return (is("actor_pid") || is("target_pid")) &&
               ColumnOf(reader_, "computer").value_or("") == computer_;
    }

private:
    const bool isUid_;
    const std::string wanted_, computer_;
    const TextSearch search_;
    RecordReader reader_;
};

}  // namespace

std::optional<std::string> FindEventText(QuestionWork& work, const std::string& key) {
    auto event = FindEvent(work, key);
    return event ? std::optional(std::move(event->text)) : std::nullopt;
}

void AnswerEvent(QuestionWork& work, const CountContext& context, const std::string& key) {
    const auto event = FindEvent(work, key);
    if (!event)
        return;
    RecordReader reader;
    const bool isRead = reader.Read(event->text);
    const bool hasEnrichments = !event->enrichments.empty() && IsJson(event->enrichments);
    std::string body;
    RecordWriter writer(&body);
    writer.BeginObject().Key("key").Text(key);
    writer.Key("record").Json(isRead ? event->text : "null");
    writer.Key("enrichments").Json(hasEnrichments ? event->enrichments : "[]");
    WriteHits(writer, *event, context);
    writer.Key("facts").BeginObject();
    for (const Column& column : Columns())
        if (const auto value =
                isRead && column.name != "event" ? reader.Value(column) : std::nullopt)
            writer.Key(column.name).Text(*value);
    writer.EndObject().EndObject();
    work.Write(body += '\n');
}

void AnswerAroundKey(QuestionWork& work, const CountContext& context, const std::string& key,
                     AroundBy by, AroundAsk ask) {
    const auto event = FindEvent(work, key);
    if (!event)
        return;
    RecordReader reader;
    const bool isRead = reader.Read(event->text);
    ask.time = EventKeyReader().Read(key).time;
    Parameters parameters;
    bool isAsked = true;
    if (by == AroundBy::correlation) {
        const auto uid = isRead ? ColumnOf(reader, "correlation_uid") : std::nullopt;
        isAsked = uid.has_value();
        parameters.emplace_back("correlation", uid.value_or(""));
    } else if (by == AroundBy::process) {
        std::shared_ptr<SameProcess> process;
        if (isRead)
            process = SameProcess::As(reader);
        isAsked = process != nullptr;
        ask.fits = [process](std::string_view text) { return process->Fits(text); };
    }
    std::string problem;
    auto question =
        isAsked ? EventQuestion::Make(std::move(parameters), context.ask, &problem) : std::nullopt;
    if (question)
        AnswerAround(work, std::move(*question), ask);
    else
        work.Write("{\"end\":true,\"more\":false,\"not_read\":[]}\n");
}

}  // namespace zel
