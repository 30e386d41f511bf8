#include "agent/body.h"
#include "agent/eventtally.h"
#include "agent/parts.h"

// POST /v1/events: lines of any format, or a file of one that has no lines. The answer counts what
// became of them and tells the first that were rejected, each by its line.

namespace zel {

namespace {

// A file is told by its first bytes alone; everything else is lines. False, with the reply, for a
// body that can't be told apart, or holds more than is taken at once: who is not told of that as a
// whole would not bring the rest again.
bool ReadBody(const HttpRequest& request, std::uint64_t most, Intake& intake,
              LineProblems* problems, HttpReply* reply) {
    const std::string& key = request.head.idempotencyKey;
    BodyLines lines = BodyLines::good;
    const auto hasTooMany = [&] {
        return lines == BodyLines::longArray ||
               problems->size() + intake.Taken().items.size() > most;
    };
    const auto note = [&](std::uint64_t number, const Intake::Outcome& outcome) {
        if (!outcome.problem.kind.empty())
            problems->emplace_back(number, outcome.problem);
    };
    if (const Format* const file = FindFileFormat(request.body)) {
        std::string error;
        if (!intake.TakeFile(*file, request.body, IdOfLine(key, {}), problems, &error))
            *reply = PlainReply(400, error);
    } else {
        lines = ForEachLine(request.body, most, [&](const CutLine& line) {
            if (!hasTooMany())
                note(line.number, intake.TakeLine(line.text, IdOfLine(key, line)));
        });
        note(0, intake.End());
        if (lines == BodyLines::brokenArray)
            *reply = PlainReply(400, "the body begins as a JSON array and is none");
    }
    if (hasTooMany())
        *reply = PlainReply(413, "more than " + std::to_string(most) +
                                     " events in one request (intake.items): nothing was taken");
    return reply->status == 200;
}

}  // namespace

void TakeEvents(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    std::string words;
    if (const int status =
            UnpackBody(request.head, parts.config->inflatedSize, &request.body, &words))
        return answer(PlainReply(status, words));
    const auto config = parts.config.Now();
    Intake intake(parts.store, config);
    auto problems = std::make_shared<LineProblems>();
    HttpReply refusal;
    if (!ReadBody(request, config->items, intake, problems.get(), &refusal))
        return answer(std::move(refusal));
    auto delivery = std::make_shared<Delivery>(std::move(intake.Taken()));
    delivery->source = intakeSource::events;
    delivery->sender = request.head.Sender();
    auto done = [&parts, delivery, problems, answer](Verdict verdict) {
        if (verdict == Verdict::noRoom) {
            HttpReply reply{503,
                            "application/json",
                            "{\"accepted\":0,\"reason\":\"there is no room; nothing was taken\"}\n",
                            {{"Retry-After", "5"}}};
            return answer(std::move(reply));
        }
        EventTally tally;
        tally.Add(*delivery, *problems, parts.log);
        HttpReply reply;
        reply.body = tally.Json();
        answer(std::move(reply));
    };
    if (delivery->items.empty())
        return done(Verdict::taken);
    parts.admission.Submit(delivery, std::move(done));
}

}  // namespace zel
