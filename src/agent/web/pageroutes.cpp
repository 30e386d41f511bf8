#include "agent/web/pageroutes.h"

#include "agent/access.h"
#include "agent/parameters.h"
#include "agent/web/eventways.h"
#include "agent/web/webrange.h"
#include "common/jsontext.h"
#include "records/columns.h"
#include "zelstore/schema/vocabulary.h"

namespace zel {

namespace {

std::string_view NameOf(ColumnType type) {
    switch (type) {
        case ColumnType::number:
            return "number";
        case ColumnType::time:
            return "time";
        case ColumnType::json:
            return "json";
        default:
            return "text";
    }
}

std::string ColumnsJson() {
    std::string list;
    for (const Column& column : Columns())
        if (column.name != "host")  // the page is that of one machine
            list += (list.empty() ? "" : ",") + ("{\"name\":" + wm::JsonString(column.name)) +
                    ",\"kind\":\"" + std::string(NameOf(column.type)) +
                    "\",\"meaning\":" + wm::JsonString(column.meaning) + "}";
    return "[" + list + "]";
}

// The first of a table stands for none.
std::string NamesJson(const ZEL::Schema::NameTable& table) {
    std::string list;
    for (std::size_t i = 1; i < table.Size(); ++i)
        list += (list.empty() ? "" : ",") +
                wm::JsonString(std::string(table.Name(static_cast<std::int32_t>(i))));
    return "[" + list + "]";
}

std::string TimeJson(const std::string& time) {
    return time.empty() ? "null" : wm::JsonString(time);
}

std::string Flag(bool flag) {
    return flag ? "true" : "false";
}

}  // namespace

void TellPage(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    const bool mayAnnotate = parts.isWritable && parts.host.Has(request.head.peer, Right::annotate);
    const std::string facts =
        "{\"version\":" + wm::JsonString(parts.version) +
        ",\"writable\":" + Flag(parts.isWritable) + ",\"may_annotate\":" + Flag(mayAnnotate) +
        ",\"live\":" + Flag(parts.host.Following() != nullptr) +
        ",\"store\":" + wm::JsonString(parts.storePath) + ",\"columns\":" + ColumnsJson() +
        ",\"objects\":" + NamesJson(ZEL::Schema::ObjectTypes()) +
        ",\"actions\":" + NamesJson(ZEL::Schema::ActionTypes());
    if (Parameter(request.head.query, "range") != "1")
        return answer({200, "application/json", facts + "}\n", {}});
    AskedQuestion question{"", AnswerForm::lines};
    question.work = [&parts, facts](QuestionWork& work) {
        const EventRange range = RangeOf(work, parts.events.Context());
        work.Write(facts + ",\"first\":" + TimeJson(range.first) +
                   ",\"last\":" + TimeJson(range.last) + "}\n");
    };
    HttpReply reply;
    reply.stream = parts.questions.Ask(std::move(question));
    answer(reply.stream ? std::move(reply)
                        : PlainReply(503, "too many questions at once (questions.waiting)"));
}

}  // namespace zel
