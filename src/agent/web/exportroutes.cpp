#include "agent/web/exportroutes.h"

#include <memory>

#include "agent/access.h"
#include "agent/parameters.h"
#include "agent/web/eventquestion.h"
#include "agent/web/eventways.h"
#include "agent/web/reportask.h"
#include "agent/web/reporttext.h"
#include "common/jsontext.h"

// A file that is saved is looked at when nobody remembers how it was made, so it has to tell by
// itself when it is not whole.

namespace zel {

namespace {

constexpr std::size_t pieceBytes = 64U << 10;  // that are written at once

struct ExportKind {
    std::string_view form, type, file;
};
constexpr ExportKind kinds[] = {
    {"ndjson", "application/x-ndjson", "events.ndjson"},
    {"csv", "text/csv; charset=utf-8", "events.csv"},
    {"ocsf", "application/x-ndjson", "events.ocsf.ndjson"},
};

const ExportKind& KindOf(std::string_view form) {
    for (const ExportKind& kind : kinds)
        if (kind.form == form)
            return kind;
    return kinds[0];
}

std::string NotWhole(const ExportKind& kind, const std::string& notRead) {
    const std::string told = "{\"incomplete\":true,\"not_read\":" + notRead + "}\n";
    return kind.form == "csv" ? "incomplete: a part of the store could not be read\r\n" : told;
}

// As the store joins them.
std::string Joined(const ZEL::QueryRow& row) {
    return std::string(row.text.substr(0, row.text.rfind('}')))
        .append(",\"enrichments\":")
        .append(row.enrichments)
        .append("}");
}

void Export(QuestionWork& work, EventQuestion& question, WebForm& form, const ExportKind& kind) {
    if (form.WantsEnrichments())
        question.ReadEnrichments();
    std::string piece;
    const ZEL::HRESULT walked =
        question.WalkOnce(work, [&](const ZEL::QueryRow& row, const EventKeyHead&) {
            const bool joins = form.WantsEnrichments() && !row.enrichments.empty();
            piece += joins ? form.Row(Joined(row), row.key) : form.Row(row.text, row.key);
            if (piece.size() >= pieceBytes) {
                work.Write(piece);
                piece.clear();
            }
            return ZEL::hr::ok;
        });
    piece += form.End();
    const std::string notRead = work.NotRead();
    if (Failed(walked) || work.IsOver() || notRead != "[]")
        piece += NotWhole(kind, notRead);
    work.Write(piece);
}

void AnswerAsFile(WebParts& parts, std::function<void(QuestionWork&)> work, std::string_view type,
                  std::string_view file, const IHttpHandler::Answer& answer) {
    AskedQuestion question{"", AnswerForm::lines};
    question.work = std::move(work);
    HttpReply reply{200, std::string(type), "", {}};
    reply.stream = parts.questions.Ask(std::move(question));
    if (!reply.stream)
        return answer(PlainReply(503, "too many questions at once (questions.waiting)"));
    reply.headers.emplace_back("Content-Disposition",
                               "attachment; filename=\"" + std::string(file) + "\"");
    reply.statusOf = [](const AnswerStream& all) {
        return !all.IsRefusal() ? 200 : all.IsLate() ? 408 : 400;
    };
    answer(std::move(reply));
}

}  // namespace

void ExportEvents(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    std::string problem;
    Parameters asked = ParametersOf(request.head.query);
    const std::string name = TakeParameter(&asked, "form");
    const ExportKind& kind = KindOf(name);
    const std::shared_ptr<WebForm> form =
        parts.tools.form(name, TakeParameter(&asked, "fields"), &problem);
    if (!form)
        return answer(PlainReply(400, problem));
    auto made = EventQuestion::Make(std::move(asked), parts.tools.ask, &problem);
    if (!made)
        return answer(PlainReply(400, problem));
    parts.host.Note(DeedOf(request.head, "exports: " + request.head.query));
    const auto question = std::make_shared<EventQuestion>(std::move(*made));
    AnswerAsFile(
        parts,
        [question, form, &kind](QuestionWork& work) { Export(work, *question, *form, kind); },
        kind.type, kind.file, answer);
}

void MakeReport(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    std::string problem;
    const auto ask = std::make_shared<ReportAsk>();
    if (!ReadReportAsk(request.body, ask.get(), &problem))
        return answer(PlainReply(400, problem));
    auto made = EventQuestion::Make(ask->parameters, parts.tools.ask, &problem);
    if (!made)
        return answer(PlainReply(400, problem));
    parts.host.Note(DeedOf(
        request.head, "makes a report of " + std::to_string(ask->events.size()) + " event(s)"));
    ask->store = parts.storePath;
    ask->version = parts.version;
    const auto question = std::make_shared<EventQuestion>(std::move(*made));
    AnswerAsFile(
        parts,
        [question, ask, &parts](QuestionWork& work) {
            WriteReport(work, parts.events.Context(), *question, *ask);
        },
        "text/html; charset=utf-8", "report.html", answer);
}

}  // namespace zel
