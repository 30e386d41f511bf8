#include "agent/web/eventways.h"

#include <algorithm>
#include <charconv>
#include <memory>

#include "agent/access.h"
#include "agent/parameters.h"
#include "agent/web/countfacets.h"
#include "agent/web/counthistogram.h"
#include "agent/web/eventshow.h"
#include "agent/web/listrows.h"
#include "common/textbridge.h"
#include "records/eventkey.h"

// Each way takes what it knows out of the parameters; what is left are conditions. Bad ones are
// refused at once, all else is work for a thread of the questions.

namespace zel {

namespace {

constexpr const char* lines = "application/x-ndjson";

// What a way has found in its parameters.
struct Asked {
    std::function<void(QuestionWork&)> work;
    std::string type = "application/json";
};

// A way's own parameters. The first problem counts.
class OwnParameters {
public:
    OwnParameters(Parameters parameters, std::string* problem)
        : parameters_(std::move(parameters)), problem_(*problem) {}

    // The first of that name; empty when there is none.
    std::string Text(std::string_view name) {
        std::string text;
        bool isThere = false;
        std::erase_if(parameters_, [&](auto& parameter) {
            if (parameter.first != name)
                return false;
            if (!std::exchange(isThere, true))
                text = std::move(parameter.second);
            return true;
        });
        return text;
    }
    std::uint64_t Number(std::string_view name, std::uint64_t least, std::uint64_t most,
                         std::uint64_t otherwise) {
        const std::string text = Text(name);
        if (text.empty())
            return otherwise;
        std::uint64_t number = 0;
        const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
        if (read.ec != std::errc() || read.ptr != text.data() + text.size() || number < least ||
            number > most)
            Refuse(std::string(name) + ": a number from " + std::to_string(least) + " to " +
                   std::to_string(most) + " is expected");
        return number;
    }
    // One of two words; the first where it is missing.
    bool IsSecond(std::string_view name, std::string_view first, std::string_view second) {
        const std::string text = Text(name);
        if (!text.empty() && text != first && text != second)
            Refuse(std::string(name).append(": ").append(first).append(" or ").append(second) +
                   " is expected");
        return text == second;
    }
    void Refuse(std::string why) {
        if (problem_.empty())
            problem_ = std::move(why);
    }
    bool IsGood() const noexcept { return problem_.empty(); }
    // What is left.
    Parameters Rest() { return std::move(parameters_); }

private:
    Parameters parameters_;
    std::string& problem_;
};

// Questions are used by one thread, but asked for here; so they are shared with the work.
std::shared_ptr<EventQuestion> MakeQuestion(OwnParameters& own, const CountContext& context) {
    std::string problem;
    auto question = EventQuestion::Make(own.Rest(), context.ask, &problem);
    if (!question)
        own.Refuse(problem);
    return question ? std::make_shared<EventQuestion>(std::move(*question)) : nullptr;
}

Asked AskHistogram(OwnParameters& own, const CountContext& context) {
    constexpr std::uint64_t most = 2000, usual = 120;
    HistogramAsk ask;
    ask.buckets = own.Number("buckets", 1, most, usual);
    ask.byLevel = own.IsSecond("by", "object", "level");
    const auto question = own.IsGood() ? MakeQuestion(own, context) : nullptr;
    return {[question, ask, &context](QuestionWork& work) {
        AnswerHistogram(work, context, std::move(*question), ask);
    }};
}

Asked AskFacets(OwnParameters& own, const CountContext& context) {
    constexpr std::uint64_t most = 1000;
    FacetsAsk ask;
    ask.most = own.Number("most", 1, most, ask.most);
    std::string problem;
    auto kinds = ReadFacetKinds(own.Text("columns"), &problem);
    if (!kinds)
        own.Refuse(problem);
    else
        ask.kinds = std::move(*kinds);
    const auto question = own.IsGood() ? MakeQuestion(own, context) : nullptr;
    return {[question, ask, &context](QuestionWork& work) {
        AnswerFacets(work, context, std::move(*question), ask);
    }};
}

ListCells ReadCells(OwnParameters& own) {
    std::string problem;
    auto cells = ListCells::Read(own.Text("fields"), &problem);
    if (!cells)
        own.Refuse(problem);
    return cells.value_or(ListCells());
}

Asked AskList(OwnParameters& own, const CountContext& context) {
    constexpr std::uint64_t most = 1000, mostSkip = std::uint64_t{1} << 40;
    ListAsk ask;
    ask.newestFirst = !own.IsSecond("order", "newest", "oldest");
    ask.most = own.Number("most", 1, most, ask.most);
    ask.skip = own.Number("skip", 0, mostSkip, 0);
    ask.cells = ReadCells(own);
    if (!ReadListPosition(own.Text("behind"), &ask))
        own.Refuse("behind: a position that the list has told is expected");
    const auto question = own.IsGood() ? MakeQuestion(own, context) : nullptr;
    return {[question, ask, &context](QuestionWork& work) {
                AnswerList(work, context, std::move(*question), ask);
            },
            lines};
}

std::string ReadKey(OwnParameters& own) {
    std::string key = own.Text("key");
    const std::string_view why = WhyNoEventKey(key);
    if (!why.empty() || !wm::IsUtf8(key))
        own.Refuse("key: " + std::string(why.empty() ? "not UTF-8" : why));
    return key;
}

void RefuseRest(OwnParameters& own, const std::string& beside = "a key") {
    for (const auto& [name, value] : own.Rest())
        own.Refuse(std::string(name).append(": can't be asked beside ").append(beside));
}

Asked AskEvent(OwnParameters& own, const CountContext& context) {
    const std::string key = ReadKey(own);
    RefuseRest(own);
    return {[key, &context](QuestionWork& work) { AnswerEvent(work, context, key); }};
}

Asked AskAround(OwnParameters& own, const CountContext& context) {
    constexpr std::uint64_t most = 1000, usualSeconds = 60, mostSeconds = 366 * 86400ULL;
    const std::string key = ReadKey(own), by = own.Text("by");
    AroundAsk ask;
    ask.most = own.Number("most", 1, most, ask.most);
    ask.distance =
        1000 * static_cast<std::int64_t>(own.Number("seconds", 0, mostSeconds, usualSeconds));
    ask.cells = ReadCells(own);
    RefuseRest(own);
    const AroundBy way = by == "process"       ? AroundBy::process
                         : by == "correlation" ? AroundBy::correlation
                                               : AroundBy::time;
    if (way == AroundBy::time && !by.empty() && by != "time")
        own.Refuse("by: process, correlation or time is expected");
    return {[key, way, ask, &context](QuestionWork& work) {
                AnswerAroundKey(work, context, key, way, ask);
            },
            lines};
}

Asked AskTree(OwnParameters& own, const CountContext& context) {
    const std::string key = ReadKey(own);
    RefuseRest(own);
    return {[key, &context](QuestionWork& work) { AnswerTree(work, context, key); }};
}

struct Way {
    std::string_view name;
    Asked (*ask)(OwnParameters& own, const CountContext& context);
};
constexpr Way ways[] = {
    {"histogram", AskHistogram}, {"facets", AskFacets}, {"list", AskList},
    {"event", AskEvent},         {"around", AskAround}, {"tree", AskTree},
};

}  // namespace

// Asks no store, so that it is answered at once.
HttpReply EventWays::Words(Parameters parameters) {
    constexpr std::uint64_t longest = 1U << 20;
    std::string problem, json;
    OwnParameters own(std::move(parameters), &problem);
    const std::string line = own.Text("line");
    std::optional<std::size_t> at;
    const std::uint64_t asked = own.Number("at", 0, longest, longest);
    if (asked < longest)
        at = asked;
    RefuseRest(own, "the line");
    if (problem.empty() && !wm::IsUtf8(line))
        problem = "line: not UTF-8";
    if (!problem.empty())
        return PlainReply(400, problem);
    const bool isGood = words_(
        line, at, [this](std::string_view column) { return seen_.Of(column); }, &json);
    return {isGood ? 200 : 400, "application/json", std::move(json), {}};
}

HttpReply EventWays::Answer(std::string_view path, Parameters parameters) {
    const std::string_view way = path.substr(path.rfind('/') + 1);
    if (way == "words")
        return Words(std::move(parameters));
    const auto* const found = std::find_if(std::begin(ways), std::end(ways),
                                           [way](const Way& each) { return each.name == way; });
    if (found == std::end(ways))
        return PlainReply(404, "there is no such way");
    std::string problem;
    OwnParameters own(std::move(parameters), &problem);
    Asked asked = found->ask(own, context_);
    if (!problem.empty())
        return PlainReply(400, problem);
    AskedQuestion question{"", AnswerForm::lines};
    question.work = std::move(asked.work);
    const auto stream = questions_.Ask(std::move(question));
    if (!stream)
        return PlainReply(503, "too many questions at once (questions.waiting)");
    HttpReply reply{200, asked.type, "", {}};
    reply.stream = stream;
    reply.statusOf = [](const AnswerStream& all) {
        return !all.IsRefusal() ? 200 : all.IsLate() ? 408 : 404;
    };
    return reply;
}

void AnswerPageWay(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    parts.host.Note(DeedOf(request.head, "asks: " + request.head.path + "?" + request.head.query));
    answer(parts.events.Answer(request.head.path, ParametersOf(request.head.query)));
}

}  // namespace zel
