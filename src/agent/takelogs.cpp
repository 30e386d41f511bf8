#include <simdjson.h>

#include <map>

#include "agent/body.h"
#include "agent/intake.h"
#include "agent/parts.h"
#include "common/asciicase.h"
#include "common/jsontext.h"
#include "common/textbridge.h"
#include "records/recordwriter.h"

// POST /v1/logs: OTLP in its JSON form. A log record's body is an event in one of the known
// formats, either as a text or as members; a record without a body is told by its attributes. A
// record that is rejected is counted in the answer, and the sender then does not send it again.

namespace zel {

namespace {

namespace dom = simdjson::dom;

constexpr int deepest = 32;

// A value of OTLP as plain JSON. 64-bit numbers may come as texts.
void AppendValue(dom::element value, RecordWriter& writer, int depth);

void AppendMembers(dom::element list, RecordWriter& writer, int depth) {
    writer.BeginObject();
    dom::array pairs;
    if (list.get(pairs) == simdjson::SUCCESS) {
        for (const dom::element pair : pairs) {
            std::string_view key;
            dom::element value;
            if (pair["key"].get(key) == simdjson::SUCCESS &&
                pair["value"].get(value) == simdjson::SUCCESS) {
                writer.Key(key);
                AppendValue(value, writer, depth + 1);
            }
        }
    }
    writer.EndObject();
}

void AppendList(dom::element list, RecordWriter& writer, int depth) {
    writer.BeginArray();
    dom::array values;
    if (list.get(values) == simdjson::SUCCESS)
        for (const dom::element value : values)
            AppendValue(value, writer, depth + 1);
    writer.EndArray();
}

void AppendValue(dom::element value, RecordWriter& writer, int depth) {
    dom::object members;
    if (depth > deepest || value.get(members) != simdjson::SUCCESS || members.size() == 0) {
        writer.Json("null");
        return;
    }
    const auto [kind, content] = *members.begin();
    std::string_view text;
    dom::element below;
    const bool isText = content.get(text) == simdjson::SUCCESS;
    if (kind == "kvlistValue" && content["values"].get(below) == simdjson::SUCCESS)
        AppendMembers(below, writer, depth);
    else if (kind == "arrayValue" && content["values"].get(below) == simdjson::SUCCESS)
        AppendList(below, writer, depth);
    else if (kind == "intValue" && isText && !text.empty() &&
             text.substr(text[0] == '-' ? 1 : 0).find_first_not_of("0123456789") == text.npos)
        writer.Json(text);
    else if (isText)
        writer.Text(text);
    else
        writer.Json(simdjson::minify(content));
}

// The event that a log record is, as one line.
std::string LineOf(dom::element record) {
    dom::element body, attributes;
    std::string_view text;
    if (record["body"]["stringValue"].get(text) == simdjson::SUCCESS)
        return std::string(text);
    std::string line;
    RecordWriter writer(&line);
    if (record["body"].get(body) == simdjson::SUCCESS)
        AppendValue(body, writer, 0);
    else if (record["attributes"].get(attributes) == simdjson::SUCCESS)
        AppendMembers(attributes, writer, 0);
    return line;
}

// Calls `take` with each log record, however they are grouped.
template <typename Take>
void ForEachRecord(dom::element root, Take take) {
    const auto each = [](dom::element parent, const char* name, auto use) {
        dom::array list;
        if (parent[name].get(list) == simdjson::SUCCESS)
            for (const dom::element item : list)
                use(item);
    };
    each(root, "resourceLogs", [&](dom::element resource) {
        each(resource, "scopeLogs", [&](dom::element scope) { each(scope, "logRecords", take); });
    });
}

HttpReply LogsReply(int status, std::string body) {
    return {status, "application/json", std::move(body), {}};
}

}  // namespace

void TakeLogs(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    std::string words;
    if (!ZEL::StartsWithNoCase(std::string_view(request.head.contentType), "application/json"))
        return answer(PlainReply(
            415, "OTLP is taken as application/json; set the exporter's encoding to json"));
    if (const int status =
            UnpackBody(request.head, parts.config->inflatedSize, &request.body, &words))
        return answer(LogsReply(status, "{\"code\":3,\"message\":" + wm::JsonString(words) + "}"));
    dom::parser parser;
    const auto parsed = parser.parse(request.body);
    if (parsed.error() != simdjson::SUCCESS)
        return answer(LogsReply(400, std::string("{\"code\":3,\"message\":\"not JSON: ") +
                                         simdjson::error_message(parsed.error()) + "\"}"));
    Intake intake(parts.store, parts.config.Now());
    std::map<std::string_view, std::uint64_t> problems;  // how many, by kind
    std::uint64_t number = 0, rejected = 0;
    std::string first;
    ForEachRecord(parsed.value_unsafe(), [&](dom::element record) {
        ++number;
        const std::string line = LineOf(record);
        const Intake::Outcome outcome = intake.TakeLine(line, "");
        if (outcome.problem.kind.empty())
            return;
        if (++rejected == 1)
            first = "log record " + std::to_string(number) + ": " + outcome.problem.Text();
        ++problems[outcome.problem.kind];
    });
    intake.End();
    auto delivery = std::make_shared<Delivery>(std::move(intake.Taken()));
    delivery->source = intakeSource::logs;
    delivery->sender = request.head.Sender();
    auto done = [&parts, delivery, problems, rejected, first, answer](Verdict verdict) {
        if (verdict == Verdict::noRoom) {
            HttpReply reply =
                LogsReply(503, "{\"code\":14,\"message\":\"there is no room; nothing was taken\"}");
            reply.headers.emplace_back("Retry-After", "5");
            return answer(std::move(reply));
        }
        for (const auto& [kind, count] : problems)
            parts.log.CountRejected(intakeSource::logs, kind, count);
        const std::string told =
            problems.empty()
                ? ""
                : "\"rejectedLogRecords\":\"" + std::to_string(rejected) +
                      "\",\"errorMessage\":" + wm::JsonString(wm::IsUtf8(first) ? first : "");
        answer(LogsReply(200, "{\"partialSuccess\":{" + told + "}}"));
    };
    if (delivery->items.empty())
        return done(Verdict::taken);
    parts.admission.Submit(delivery, std::move(done));
}

}  // namespace zel
