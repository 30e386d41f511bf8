#include "agent/web/liveroutes.h"

#include "agent/access.h"
#include "agent/following/followers.h"
#include "agent/parameters.h"
#include "agent/web/listrows.h"
#include "agent/web/websessions.h"
#include "common/jsontext.h"

// New events come as followers get them, beginning with those that no list can have found yet, as
// they are on their way into the store. What a page asks beside times is asked of each; a range of
// time means the past, so it is left aside. A browser whose connection breaks comes back by itself
// with the last position that it has seen, and misses nothing.

namespace zel {

namespace {

class LiveForm final : public FollowForm {
public:
    LiveForm(ListCells cells, std::string id) : cells_(std::move(cells)), id_(std::move(id)) {}

    void Position(std::string_view position, std::string* out) override {
        Begin(position, isFirst_ ? "hello" : "position", out);
        out->append("{\"position\":").append(wm::JsonString(position));
        if (isFirst_)
            out->append(",\"id\":").append(wm::JsonString(id_));
        out->append("}\n\n");
        isFirst_ = false;
    }
    void Event(std::string_view position, std::string_view key, std::string_view record,
               std::string* out) override {
        const bool isRead = reader_.Read(record);
        Begin(position, "row", out);
        out->append("{\"position\":").append(wm::JsonString(position));
        out->append(",\"key\":").append(wm::JsonString(key));
        for (const char* const column : {"time", "object"}) {
            const auto value = isRead ? reader_.Value(*FindColumn(column)) : std::nullopt;
            out->append(",\"").append(column).append("\":");
            out->append(value ? wm::JsonString(*value) : "null");
        }
        out->append(",\"cells\":");
        out->append(cells_.Write({std::string(key), std::string(record), ""}, reader_));
        out->append("}\n\n");
    }
    void Gap(std::string_view position, std::string_view reason, std::uint64_t events,
             std::string* out) override {
        Begin(position, "gap", out);
        out->append("{\"position\":").append(wm::JsonString(position));
        out->append(",\"reason\":").append(wm::JsonString(reason));
        out->append(",\"events\":").append(std::to_string(events)).append("}\n\n");
    }
    void Silence(std::string* out) override { out->append(":\n\n"); }

private:
    static void Begin(std::string_view position, std::string_view event, std::string* out) {
        out->append("id: ").append(position).append("\nevent: ").append(event).append("\ndata: ");
    }

    const ListCells cells_;
    RecordReader reader_;
    const std::string id_;
    bool isFirst_ = true;
};

// False with words for what can't be asked of events as they come.
bool AskLive(WebParts& parts, Parameters asked, FollowRequest* wanted, std::string* problem) {
    for (const std::string_view range : {"since", "until", "day"})
        TakeParameter(&asked, range);
    for (const auto& [name, value] : asked) {
        if (name != "rule" && name != "without_rule" && name != "level")
            continue;
        *problem = name + ": events that come have no hits of rules yet";
        return false;
    }
    AskedQuestion question;
    if (asked.empty())
        return true;
    if (!parts.tools.ask(asked, &question, problem))
        return false;
    wanted->document = std::move(question.document);
    wanted->fits = std::move(question.fits);
    return true;
}

}  // namespace

void FollowLive(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    if (parts.host.Following() == nullptr)
        return answer(PlainReply(404, "nothing comes into a store that is read alone"));
    std::string problem;
    Parameters asked = ParametersOf(request.head.query);
    auto cells = ListCells::Read(TakeParameter(&asked, "fields"), &problem);
    const std::string& last = request.head.lastEventId;
    FollowRequest wanted{last.empty() ? parts.host.Settled() : last, "", -1};
    if (!cells || !AskLive(parts, std::move(asked), &wanted, &problem))
        return answer(PlainReply(400, problem));
    const std::string id = RandomText();
    wanted.form = std::make_shared<LiveForm>(std::move(*cells), id);
    parts.host.Note(DeedOf(request.head, "follows on the page: " + request.head.query));
    const auto stream = parts.host.Following()->Follow(wanted, &problem);
    if (!stream)
        return answer(problem.empty()
                          ? PlainReply(503, "too many follow at once (questions.followers)")
                          : PlainReply(400, problem));
    parts.live.Add(id, stream);
    HttpReply reply{200, "text/event-stream", "", {}};
    reply.stream = stream;
    answer(std::move(reply));
}

void PauseLive(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    const std::string paused = Parameter(request.head.query, "paused");
    if (paused != "0" && paused != "1")
        return answer(PlainReply(400, "paused is 1 or 0"));
    if (!parts.live.Pause(Parameter(request.head.query, "id"), paused == "1"))
        return answer(PlainReply(404, "there is no such stream any more"));
    answer({200,
            "application/json",
            "{\"paused\":" + std::string(paused == "1" ? "true" : "false") + "}\n",
            {}});
}

}  // namespace zel
