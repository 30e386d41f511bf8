#include <chrono>
#include <functional>

#include "agent/body.h"
#include "agent/intake.h"
#include "agent/parts.h"
#include "common/jsontext.h"
#include "common/textbridge.h"
#include "records/jsonfields.h"

// POST /_bulk, as shippers with an Elasticsearch output send it: a line that says what to do, and
// behind it the event. What senders do with each answer decides what is answered: a bad item never
// fails the request, since some would send the whole batch for ever; and where there is no room the
// connection is closed without an answer, as one of the commonest drops its batch on any other.

namespace zel {

namespace {

constexpr std::size_t longestId = 512;
constexpr std::size_t longestIndex = 255;

// One action, and what became of it.
struct BulkItem {
    std::string action;
    std::string index;
    std::string id;
    std::uint64_t line = 0;
    Intake::Outcome outcome;
};

HttpReply BulkReply(int status, std::string body) {
    return {status, "application/json", std::move(body), {{"X-Elastic-Product", "Elasticsearch"}}};
}

HttpReply RefuseBulk(int status, const char* type, const std::string& reason) {
    return BulkReply(status, "{\"error\":{\"type\":\"" + std::string(type) +
                                 "\",\"reason\":" + wm::JsonString(reason) +
                                 ",\"root_cause\":[]},\"status\":" + std::to_string(status) + "}");
}

// "/{index}/_bulk" or "/{index}/{type}/_bulk".
std::string IndexOfPath(std::string_view path) {
    const std::size_t end = std::min(path.find('/', 1), path.size());
    const std::string_view first = path.substr(1, end - 1);
    return std::string(first == "_bulk" ? "" : first);
}

class BulkReading {
public:
    BulkReading(Intake& intake, std::string index, std::uint64_t most)
        : intake_(intake), index_(std::move(index)), most_(most) {}

    void TakeLine(std::string_view line, std::uint64_t number) {
        if (!problem.empty())
            return;
        const bool isBehindBlank = number > last_ + 1;
        last_ = number;
        if (wantsEvent_ && isBehindBlank && IsAction(line))
            items.back().outcome.problem = {"an action without an event", ""};
        else if (wantsEvent_)
            return TakeEvent(line, number);
        TakeAction(line, number);
    }

    void End() {
        if (wantsEvent_)
            items.back().outcome.problem = {"an action without an event", ""};
        intake_.End();
    }

    std::vector<BulkItem> items;
    std::string problem;      // why the rest can't be told apart
    bool hasTooMany = false;  // that is why

private:
    // Where an event is empty, blanks stand in its place and the next action behind them: one line
    // that is none must not make the whole request one that comes again and again.
    bool IsAction(std::string_view line) {
        fields_.Clear();
        if (!json_.Read(line, &fields_) || fields_.All().empty())
            return false;
        const std::string_view name = fields_.All().front().name;
        return IsActionName(name.substr(0, name.find('.')));
    }

    static bool IsActionName(std::string_view name) {
        return name == "index" || name == "create" || name == "update" || name == "delete";
    }

    void TakeEvent(std::string_view line, std::uint64_t number) {
        wantsEvent_ = false;
        BulkItem& item = items.back();
        item.line = number;
        if (item.outcome.problem.kind.empty())
            item.outcome =
                intake_.TakeLine(line, item.id.empty() ? "" : item.index + "/" + item.id);
    }

    void TakeAction(std::string_view line, std::uint64_t number) {
        hasTooMany = items.size() >= most_;
        if (hasTooMany) {
            problem = "more than " + std::to_string(most_) + " actions (intake.items)";
            return;
        }
        fields_.Clear();
        if (!json_.Read(line, &fields_) || fields_.All().empty()) {
            problem = "Malformed action/metadata line [" + std::to_string(number) + "]";
            return;
        }
        const std::string_view name = fields_.All().front().name;
        BulkItem item;
        item.action = name.substr(0, name.find('.'));
        item.line = number;
        if (!IsActionName(item.action)) {
            problem = "Malformed action/metadata line [" + std::to_string(number) +
                      "]: an action is to be index, create, update or delete";
            return;
        }
        const auto member = [&](const char* which) {
            const SourceField* const field = fields_.FindWhole(item.action + which);
            return field != nullptr && field->kind != SourceField::Kind::json
                       ? std::string(field->text)
                       : "";
        };
        item.id = member("._id");
        item.index = member("._index");
        if (item.index.empty())
            item.index = index_;
        wantsEvent_ = item.action != "delete";
        if (item.action == "update" || item.action == "delete")
            item.outcome.problem = {"events are neither changed nor deleted", ""};
        else if (item.id.size() > longestId)
            item.outcome.problem = {"an _id of more than 512 bytes", ""};
        else if (item.index.size() > longestIndex)
            item.outcome.problem = {"an _index of more than 255 bytes", ""};
        else if (member(".op_type") == "create")
            item.action = "create";
        items.push_back(std::move(item));
    }

    Intake& intake_;
    const std::string index_;
    const std::uint64_t most_;
    JsonFields json_;
    SourceFields fields_;
    bool wantsEvent_ = false;
    std::uint64_t last_ = 0;  // the line before
};

int StatusOf(const BulkItem& item, const Delivery& delivery) {
    if (!item.outcome.problem.kind.empty())
        return 400;
    const bool isDuplicate =
        item.outcome.count > 0 && delivery.items[item.outcome.first].isDuplicate;
    return !isDuplicate ? 201 : item.action == "create" ? 409 : 200;
}

// Some senders want a text where they have sent none.
std::string IdOf(const BulkItem& item, const Delivery& delivery) {
    if (!item.id.empty() || item.outcome.count == 0)
        return item.id;
    return std::to_string(std::hash<std::string>()(delivery.items[item.outcome.first].key));
}

std::string ItemJson(const BulkItem& item, const Delivery& delivery, int status) {
    std::string text = "{\"" + item.action + "\":{\"_index\":" + wm::JsonString(item.index) +
                       ",\"_id\":" + wm::JsonString(IdOf(item, delivery)) +
                       ",\"status\":" + std::to_string(status);
    if (status == 409)
        text +=
            ",\"error\":{\"type\":\"version_conflict_engine_exception\",\"reason\":\"id is stored "
            "already\"}";
    if (status == 400) {
        const std::string reason = item.outcome.problem.Text();
        const bool isAction = item.action == "update" || item.action == "delete";
        text.append(",\"error\":{\"type\":\"")
            .append(isAction ? "action_request_validation_exception" : "document_parsing_exception")
            .append("\",\"reason\":")
            .append(wm::JsonString(
                "line " + std::to_string(item.line) + ": " +
                (wm::IsUtf8(reason) ? reason : std::string(item.outcome.problem.kind))))
            .append("}");
    }
    return text + "}}";
}

std::string BulkAnswer(const std::vector<BulkItem>& items, const Delivery& delivery, AgentLog& log,
                       std::int64_t tookMs) {
    std::string list;
    bool hasErrors = false;
    for (const BulkItem& item : items) {
        const int status = StatusOf(item, delivery);
        hasErrors = hasErrors || status >= 300;
        list.append(list.empty() ? "" : ",").append(ItemJson(item, delivery, status));
        if (status == 400)
            log.CountRejected(intakeSource::bulk, item.outcome.problem.kind);
    }
    for (const SpoolItem& item : delivery.items)
        log.duplicates += item.isDuplicate ? 1 : 0;
    return "{\"took\":" + std::to_string(tookMs) + ",\"errors\":" + (hasErrors ? "true" : "false") +
           ",\"items\":[" + list + "]}";
}

}  // namespace

void TakeBulk(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    std::string words;
    if (const int status =
            UnpackBody(request.head, parts.config->inflatedSize, &request.body, &words))
        return answer(RefuseBulk(status, "parse_exception", words));
    Intake intake(parts.store, parts.config.Now());
    auto reading =
        std::make_shared<BulkReading>(intake, IndexOfPath(request.head.path), parts.config->items);
    ForEachLine(request.body, parts.config->items,
                [&](const CutLine& line) { reading->TakeLine(line.text, line.number); });
    reading->End();
    if (!reading->problem.empty())
        return answer(RefuseBulk(reading->hasTooMany ? 413 : 400, "illegal_argument_exception",
                                 reading->problem));
    if (reading->items.empty())
        return answer(RefuseBulk(400, "parse_exception", "request body is required"));
    auto items = std::make_shared<std::vector<BulkItem>>(std::move(reading->items));
    auto delivery = std::make_shared<Delivery>(std::move(intake.Taken()));
    delivery->source = intakeSource::bulk;
    delivery->sender = request.head.Sender();
    auto done = [&parts, delivery, items, answer, begin](Verdict verdict) {
        HttpReply reply;
        reply.isCut = verdict == Verdict::noRoom;
        if (!reply.isCut)
            reply = BulkReply(200, BulkAnswer(*items, *delivery, parts.log,
                                              std::chrono::duration_cast<std::chrono::milliseconds>(
                                                  Clock::now() - begin)
                                                  .count()));
        answer(std::move(reply));
    };
    if (delivery->items.empty())
        return done(Verdict::taken);
    parts.admission.Submit(delivery, std::move(done));
}

}  // namespace zel
