#include <poll.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "connection/agentrequest.h"
#include "records/timearg.h"
#include "zel/commands.h"
#include "zel/query/answer.h"
#include "zel/query/askeddocument.h"
#include "zel/query/queryarguments.h"
#include "zel/query/queryplan.h"
#include "zel/results/streamsink.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/output.h"
#include "zel/terminal/textfit.h"

// Events as the agent accepts them. The agent decides which fit by their keys; conditions on texts
// are tested here, and what is left is printed in the forms that answers have. Each line of the
// agent carries the position behind it, so after a cut following goes on right there.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr int pauseMs = 1000;

// One line of the agent, which is not trusted to be one.
struct FollowedLine {
    std::string_view position;
    std::string_view event;  // JSON; empty for none
    std::string_view gap;    // the same
};

bool TakeFront(std::string_view front, std::string_view* text) {
    const bool isFront = text->starts_with(front);
    text->remove_prefix(isFront ? front.size() : 0);
    return isFront;
}

bool ReadLine(std::string_view text, FollowedLine* line) {
    if (!TakeFront("{\"position\":\"", &text) || !text.ends_with('}'))
        return false;
    line->position = text.substr(0, text.find('"'));
    text.remove_prefix(std::min(line->position.size() + 1, text.size()));
    text.remove_suffix(text.empty() ? 0 : 1);
    if (TakeFront(",\"event\":{", &text))
        line->event = {text.data() - 1, text.size() + 1};
    else if (TakeFront(",\"gap\":{", &text))
        line->gap = {text.data() - 1, text.size() + 1};
    else
        return text.empty();
    return true;
}

std::string Encoded(std::string_view text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        encoded.append({'%', digits[byte >> 4U], digits[byte & 15U]});
    }
    return encoded;
}

class AgentFollower {
public:
    AgentFollower(const FollowOptions& options, std::string document, TextFilter* filter,
                  std::int64_t limit, ResultForm& form, Output& output)
        : options_(options),
          document_(std::move(document)),
          filter_(filter),
          left_(limit),
          output_(output),
          sink_(output, form) {}

    int Run(std::string position);

private:
    // Until the agent goes away, or nobody wants more.
    HRESULT FollowOnce();
    bool TakeLines(std::string* waiting);
    bool Take(const FollowedLine& line);
    bool Pause();
    int End(HRESULT result);

    const FollowOptions& options_;
    const std::string document_;
    TextFilter* const filter_;  // may be null
    std::int64_t left_;         // negative: no limit
    Output& output_;
    StreamSink sink_;
    std::string position_, problem_, text_;
    bool isDone_ = false, hasGaps_ = false, isStrange_ = false;
};

HRESULT AgentFollower::FollowOnce() {
    AgentRequest request(AgentSocket(), [this] { return Interrupted() || !output_.Usable(); });
    HRESULT result = request.Send("POST", "/v1/follow?position=" + Encoded(position_), document_);
    std::string waiting;
    while (Succeeded(result) && !isDone_) {
        const std::size_t before = waiting.size();
        result = request.Read(&waiting);
        if (Succeeded(result) && waiting.size() == before)
            result = agentResult::lost;
        if (!TakeLines(&waiting))
            result = isStrange_ ? hr::fail : hr::aborted;
    }
    problem_ = isStrange_                  ? "the agent does not answer as an agent does"
               : request.Problem().empty() ? "the agent has ended"
                                           : request.Problem();
    return result;
}

// What stands behind the last end of a line waits for more.
bool AgentFollower::TakeLines(std::string* waiting) {
    std::size_t at = 0;
    for (std::size_t end = 0; !isDone_ && (end = waiting->find('\n', at)) != waiting->npos;
         at = end + 1) {
        const std::string_view text(waiting->data() + at, end - at);
        FollowedLine line;
        isStrange_ = !text.empty() && !ReadLine(text, &line);
        if (isStrange_ || (!text.empty() && !Take(line)))
            return false;
    }
    waiting->erase(0, at);
    return sink_.Flush();
}

bool AgentFollower::Take(const FollowedLine& line) {
    if (!line.gap.empty()) {
        hasGaps_ = true;
        Say("events are missing here: " + Escaped(line.gap));
    }
    bool isTaken = true;
    if (!line.event.empty() && (filter_ == nullptr || filter_->Fits(line.event))) {
        text_.assign(line.event);
        if (options_.withPosition)
            text_.insert(1, "\"position\":\"" + std::string(line.position) + "\",");
        isTaken = sink_.Take({text_, ""});
        left_ -= left_ > 0 ? 1 : 0;
        isDone_ = left_ == 0;
    }
    position_ = line.position;
    return isTaken;
}

// False when nobody wants to wait.
bool AgentFollower::Pause() {
    pollfd wait{InterruptDescriptor(), POLLIN, 0};
    ::poll(&wait, 1, pauseMs);
    return !Interrupted() && output_.Usable();
}

int AgentFollower::End(HRESULT result) {
    if (position_ != options_.from)
        Say("position " + Escaped(position_));
    if (Interrupted())
        return Terminated() ? exitCode::done : exitCode::interrupted;
    if (!output_.Usable())
        return exitCode::done;  // the output tells why
    if (!isDone_) {
        Say(problem_);
        return result == hr::invalidArgument ? exitCode::usage : exitCode::noStore;
    }
    const bool isTested = filter_ == nullptr || filter_->Untested() == 0;
    if (!isTested)
        Say(std::to_string(filter_->Untested()) +
            " event(s) could not be tested: they are no JSON");
    return sink_.Finish() && !hasGaps_ && isTested ? exitCode::done : exitCode::losses;
}

int AgentFollower::Run(std::string position) {
    position_ = std::move(position);
    isDone_ = left_ == 0;
    HRESULT result = hr::ok;
    bool hasTold = false;
    while (!isDone_) {
        const std::string before = position_;
        result = FollowOnce();
        const bool passes = result == agentResult::lost || result == agentResult::busy;
        if (isDone_ || !options_.reconnects || !passes || !output_.Usable() || Interrupted())
            break;
        hasTold = hasTold && position_ == before;
        if (!hasTold)
            Say(problem_ + "; going on when it is back");
        hasTold = true;
        if (!Pause())
            break;
    }
    return End(result);
}

// A position as it was told, or what people write for a time.
bool ReadPosition(const FollowOptions& options, const ZoneTime& zone, std::string* position,
                  std::string* problem) {
    *position = options.from.empty() ? "now" : options.from;
    if (*position == "now" || position->find('/') != position->npos)
        return true;
    const TimeArgument time = ParseTimeInZone(options.from, zone);
    *position = time.text;
    if (!time.ok)
        *problem = Complaint("--from", options.from, time.error, time.column);
    return time.ok;
}

}  // namespace

int RunFollow(const FollowOptions& options) {
    if (AgentSocket().empty()) {
        Say("no agent is named: --socket or ZEL_SOCKET names its socket. Without one, `zel ingest "
            "--follow` prints what it stores itself");
        return exitCode::noStore;
    }
    web::json::value document;
    TextConditions conditions;
    if (const int end = ReadAsked(options.question, &conditions, &document); end != exitCode::done)
        return end;
    QueryPlan plan = PlanQuery(document);
    if (options.question.limit == "0")
        plan.limit = 0;
    AnswerPlan answer;
    std::string problem, position;
    if (plan.byReceive)
        problem = "receive_time says where to begin, which is what --from does here";
    if (!problem.empty() || !PlanAnswer(options.question, &plan, &answer, &problem) ||
        !ReadPosition(options, answer.form.zone, &position, &problem)) {
        Say(problem);
        return exitCode::usage;
    }
    TextFilter filter(conditions);
    const auto form = MakeResultForm(answer.form);
    Output output;
    AgentFollower follower(options, document.serialize(), conditions.empty() ? nullptr : &filter,
                           plan.limit, *form, output);
    return output.Finish(follower.Run(position));
}

}  // namespace zel
