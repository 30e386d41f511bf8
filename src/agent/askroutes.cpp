#include "agent/askroutes.h"

#include <simdjson.h>

#include <charconv>
#include <chrono>

#include "agent/asking/questions.h"
#include "agent/body.h"
#include "agent/diskwatch.h"
#include "agent/following/followers.h"
#include "agent/parameters.h"
#include "agent/web/eventways.h"
#include "agent/web/webroutes.h"
#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/storelook.h"
#include "records/eventkey.h"
#include "zelstore/keys/keyformat.h"

// Questions and what else clients of a store do, by way of the service. Each is told in the log
// with who did it, and never with what came out.

namespace zel {

namespace {

using Answer = IHttpHandler::Answer;

constexpr std::size_t longestFollowed = 1U << 20;  // bytes of a document

void LogDeed(AgentParts& parts, const HttpHead& head, const std::string& deed) {
    parts.log.Note(DeedOf(head, deed));
}

void Ask(AgentParts& parts, const HttpHead& head, AskedQuestion question, const Answer& answer) {
    LogDeed(parts, head, "asks: " + question.document);
    const bool isFrames = question.form == AnswerForm::frames;
    const auto stream = parts.questions.Ask(std::move(question));
    if (!stream)
        return answer(PlainReply(503, "too many questions at once (questions.waiting)"));
    HttpReply reply{200, isFrames ? "application/octet-stream" : "application/x-ndjson", "", {}};
    reply.stream = stream;
    if (isFrames)
        return answer(std::move(reply));
    // What can't be asked is refused as a whole, which shows with the first bytes.
    reply.statusOf = [](const AnswerStream& all) {
        return !all.IsRefusal() ? 200 : all.IsLate() ? 408 : 400;
    };
    answer(std::move(reply));
}

// An empty one is none.
bool ReadLimit(const std::string& text, std::int64_t* limit) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *limit);
    return text.empty() ||
           (error == std::errc() && end == text.data() + text.size() && *limit >= 0);
}

}  // namespace

std::string SilentSuffixOfNow() {
    using std::chrono::microseconds;
    static std::atomic<std::int64_t> last{0};
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t number = std::chrono::floor<microseconds>(now).count();
    std::int64_t before = last;
    while (!last.compare_exchange_weak(before, std::max(number, before + 1))) {
    }
    return ZEL::TimedEnrichmentSuffix(std::max(number, before + 1), true);
}

namespace {

// Read twice: the one reader finds every mistake, the other gives the text as it stands.
std::string ReadEnrichment(std::string_view line, SpooledEnrichment* enrichment) {
    const simdjson::padded_string text(line);
    simdjson::dom::parser checker;
    std::string_view key;
    if (checker.parse(text)["key"].get(key) != simdjson::SUCCESS)
        return R"(not of the form {"key":"...","enrichment":...})";
    enrichment->key = key;
    const std::string_view why = WhyNoKeyToEnrich(key);
    simdjson::ondemand::parser parser;
    simdjson::ondemand::document document;
    simdjson::ondemand::value value;
    std::string_view raw;
    if (why.empty() && parser.iterate(text).get(document) == simdjson::SUCCESS &&
        document["enrichment"].get(value) == simdjson::SUCCESS &&
        simdjson::to_json_string(value).get(raw) == simdjson::SUCCESS) {
        enrichment->text = raw;
        if (ZEL::ShapeOf(key) == ZEL::KeyShape::primary)
            enrichment->key += SilentSuffixOfNow();
        return "";
    }
    return why.empty() ? R"(not of the form {"key":"...","enrichment":...})" : std::string(why);
}

}  // namespace

void AnswerRows(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    Ask(parts, request.head, {std::move(request.body), AnswerForm::frames, -1}, answer);
}

namespace {

// The document as it was sent, or what the parameters ask in its place.
bool ReadQuestion(AgentParts& parts, HttpRequest& request, AskedQuestion* question,
                  std::string* problem) {
    Parameters asked;
    std::string limit;
    question->document = std::move(request.body);
    for (auto& [name, value] : ParametersOf(request.head.query)) {
        if (name == "limit")
            limit = value;
        else if (name == "document" && question->document.empty())
            question->document = value;
        else
            asked.emplace_back(std::move(name), std::move(value));
    }
    if (!ReadLimit(limit, &question->limit)) {
        *problem = "limit is no number";
        return false;
    }
    if (question->document.empty() && !asked.empty())
        return parts.askByParameters(asked, question, problem);
    if (question->document.empty())
        *problem =
            "nothing is asked: a document as the body or the parameter \"document\", or "
            "parameters such as since and action";
    else if (!asked.empty())
        *problem = asked.front().first + ": beside a document only limit can be given";
    return problem->empty();
}

}  // namespace

void AnswerQuery(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    AskedQuestion question{"", AnswerForm::lines};
    std::string problem;
    if (!ReadQuestion(parts, request, &question, &problem))
        return answer(PlainReply(400, problem));
    Ask(parts, request.head, std::move(question), answer);
}

void AnswerEventWay(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    LogDeed(parts, request.head, "asks: " + request.head.path + "?" + request.head.query);
    answer(parts.events.Answer(request.head.path, ParametersOf(request.head.query)));
}

void FollowEvents(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    FollowRequest wanted{Parameter(request.head.query, "position"), std::move(request.body), -1};
    if (wanted.document.empty())
        wanted.document = Parameter(request.head.query, "document");
    if (!ReadLimit(Parameter(request.head.query, "limit"), &wanted.limit))
        return answer(PlainReply(400, "limit is no number"));
    if (wanted.document.size() > longestFollowed)
        return answer(PlainReply(413, "the document is too large to be asked of each event"));
    LogDeed(parts, request.head, "follows: " + wanted.position + " " + wanted.document);
    std::string problem;
    const auto stream = parts.followers.Follow(wanted, &problem);
    if (!stream)
        return answer(problem.empty()
                          ? PlainReply(503, "too many follow at once (questions.followers)")
                          : PlainReply(400, problem));
    HttpReply reply{200, "application/x-ndjson", "", {}};
    reply.stream = stream;
    answer(std::move(reply));
}

void TellFolders(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    StoreLook look;
    look.directory = parts.config->storePath;
    if (Parameter(request.head.query, "brief").empty()) {
        look = LookHere(parts.config->storePath, true);
        ZEL::CountedPtr<ZEL::IStringValue> oldest;
        if (Succeeded(parts.store.GetOldestDate(oldest.Receive(), &look.estimatedBytes)))
            look.oldestDate = wm::ToText(oldest.Get());
    }
    answer({200, "application/json", ToJson(look) + "\n", {}});
}

void TakeEnrichments(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    const auto delivery = std::make_shared<Delivery>();
    std::string problem;
    const BodyLines lines =
        ForEachLine(request.body, parts.config->items, [&](const CutLine& line) {
            if (!problem.empty())
                return;
            SpooledEnrichment enrichment;
            const std::string why = ReadEnrichment(line.text, &enrichment);
            if (!why.empty())
                problem = "line " + std::to_string(line.number) + ": " + why;
            delivery->enrichments.push_back(std::move(enrichment));
        });
    if (lines == BodyLines::longArray)
        return answer(PlainReply(413, "more enrichments than intake.items: nothing was taken"));
    if (lines == BodyLines::brokenArray)
        problem = "the body begins as a JSON array and is none";
    if (!problem.empty())
        return answer(PlainReply(400, problem));
    const std::string count = std::to_string(delivery->enrichments.size());
    const auto done = [answer, count](Verdict verdict) {
        answer(verdict == Verdict::taken
                   ? HttpReply{200, "application/json", "{\"accepted\":" + count + "}\n", {}}
                   : PlainReply(503, "there is no room; nothing was taken"));
    };
    if (delivery->enrichments.empty())
        return done(Verdict::taken);
    LogDeed(parts, request.head, "adds " + count + " enrichment(s)");
    parts.admission.Submit(delivery, done);
}

void MakeWebLink(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    if (!request.head.peer.isKnown)
        return answer(PlainReply(403, "that is for the socket alone"));
    if (parts.web == nullptr)
        return answer(PlainReply(404, "the agent serves no page (web.port)"));
    const std::string link =
        parts.web->MakeLink(request.head.peer, static_cast<std::uint16_t>(parts.config->webPort));
    if (link.empty())
        return answer(PlainReply(503, "the system gives no random numbers"));
    LogDeed(parts, request.head, "gets a link to the page");
    answer({200, "application/json", "{\"url\":" + wm::JsonString(link) + "}\n", {}});
}

void PurgeNow(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    constexpr std::uint64_t megabyte = 0x100000;
    const std::string size = Parameter(request.head.query, "max_size");
    std::uint64_t bytes = 0;
    if (!ParseSize(size, &bytes) || bytes / megabyte > UINT32_MAX)
        return answer(PlainReply(400, "max_size is no size such as 500M"));
    LogDeed(parts, request.head, "purges the store to " + size);
    const ZEL::HRESULT result = parts.watch.PurgeTo(static_cast<std::uint32_t>(bytes / megabyte));
    if (Failed(result))
        return answer(PlainReply(500, "the purge failed"));
    answer({200, "application/json", "{\"done\":true}\n", {}});
}

}  // namespace zel
