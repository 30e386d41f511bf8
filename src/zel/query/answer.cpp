#include "zel/query/answer.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "zel/terminal/messages.h"

// How an answer leaves. On a terminal a person reads it: in the order of time, as a table. A script
// gets each event as soon as the store has it, in the store's order. `--limit` by itself means the
// first ones of that order everywhere, so that it costs no more than it prints.

namespace zel {

namespace {

// A table has no room for keys, so with them lines are the form on a terminal too.
std::string FormName(const QueryOptions& options, bool isTerminal) {
    if (options.printKeys)
        return "keys";
    if (!options.answer.output.empty())
        return options.answer.output;
    return isTerminal && !options.withKey ? "table" : "ndjson";
}

bool ReadLast(const std::string& text, std::int64_t* last) {
    constexpr std::int64_t most = 2147483647;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, *last);
    return parsed.ec == std::errc() && parsed.ptr == end && *last >= 1 && *last <= most;
}

bool Refuse(const std::string& why, std::string* problem) {
    *problem = why;
    return false;
}

// What a flag lists. Enrichments that the store does not join would look as if there were none.
std::optional<std::vector<Field>> FieldsOf(const std::string& flag, const std::string& list,
                                           const QueryPlan& query, std::string* problem) {
    auto fields = ParseFields(list, problem);
    if (!fields) {
        *problem = flag + ": " + *problem;
        return std::nullopt;
    }
    const bool hasEnrichments = std::any_of(
        fields->begin(), fields->end(), [](const Field& field) { return field.IsEnrichments(); });
    if (!hasEnrichments || query.joinsEnrichments)
        return fields;
    *problem = flag + ": enrichments are there with --enrichments alone";
    return std::nullopt;
}

// Which fields the form shows; none where it shows whole events.
bool ReadFields(const QueryOptions& options, const QueryPlan& query, FormChoice* form,
                std::string* problem) {
    const bool isTimeline = form->name == "timesketch";
    if (options.answer.fields.empty()) {
        if (isTimeline || form->name == "csv")
            form->fields = AllFields({query.ofFleet, options.withKey, query.joinsEnrichments});
        return true;
    }
    if (form->name == "ocsf" || isTimeline)
        return Refuse("--fields: -o " + form->name + " has fields of its own", problem);
    auto fields = FieldsOf("--fields", options.answer.fields, query, problem);
    if (!fields)
        return false;
    form->fields = std::move(*fields);
    const bool hasKey = std::any_of(form->fields.begin(), form->fields.end(),
                                    [](const Field& field) { return field.IsKey(); });
    if (options.withKey && !hasKey)
        form->fields.insert(form->fields.begin(), {"key", FindColumn("key"), {}, ColumnType::text});
    return true;
}

bool ReadZone(const AnswerOptions& options, ZoneTime* zone, std::string* problem) {
    auto found = ZoneTime::Find(options.zone.empty() ? "UTC" : options.zone, problem);
    if (found)
        *zone = std::move(*found);
    else
        *problem = "--tz: " + *problem;
    return found.has_value();
}

// A count has rows of its own, in an order of its own; what is said of events makes no sense there.
bool ReadCounts(const QueryOptions& options, QueryPlan* query, AnswerPlan* answer,
                std::string* problem) {
    const AnswerOptions& asked = options.answer;
    const std::string flag = asked.countBy.empty() ? "--histogram" : "--count-by";
    const std::string& form = answer->form.name;
    if (!asked.last.empty() || asked.sort || asked.reverse || !asked.fields.empty() ||
        options.withKey || options.showCursor || form == "ocsf" || form == "timesketch")
        return Refuse(flag + " counts events; flags that order or show them do not go with it",
                      problem);
    CountPlan counts;
    if (!asked.histogram.empty()) {
        counts.step = TimeSteps::ParseWidth(asked.histogram);
        if (!counts.step)
            return Refuse("--histogram: a length of time such as 15m, 1h or 1d is expected",
                          problem);
    }
    if (!asked.countBy.empty()) {
        auto fields = FieldsOf("--count-by", asked.countBy, *query, problem);
        if (!fields)
            return false;
        counts.by = std::move(*fields);
    }
    counts.most = query->limit;
    query->asksForAll = true;
    answer->limitsItself = true;
    answer->counts = std::move(counts);
    return true;
}

// The order that was asked for, with what of it `--limit` and `--last` leave.
std::optional<EventOrder> OrderOf(const AnswerOptions& options, const QueryPlan& query,
                                  std::int64_t last, bool isTerminal) {
    const bool byDefault = isTerminal && query.limit < 0 && !query.byReceive;
    if (last < 0 && !options.sort && !options.reverse && !byDefault)
        return std::nullopt;
    EventOrder order;
    order.byArrival = query.byReceive;
    order.keepsNewest = last >= 0 || options.reverse;
    order.newestFirst = order.keepsNewest && !options.sort;
    order.most = last >= 0 ? last : query.limit;
    return order;
}

// A fleet has its rows in one order of time, from either end, so that nothing need be kept here but
// what is to be turned round.
void OrderFleet(const AnswerOptions& options, std::int64_t last, QueryPlan* query,
                AnswerPlan* answer) {
    using Order = IFleetCallback::Order;
    const bool keepsNewest = last >= 0 || options.reverse;
    query->rowOrder = keepsNewest ? Order::newestFirst : Order::oldestFirst;
    answer->newest = last;
    answer->order.reset();
    if (last < 0 || !options.sort)
        return;
    answer->order.emplace();
    answer->order->most = last;
    answer->order->keepsNewest = answer->order->fromNewest = true;
}

bool ReadOrder(const QueryOptions& asked, bool isTerminal, QueryPlan* query, AnswerPlan* answer,
               std::string* problem) {
    const AnswerOptions& options = asked.answer;
    std::int64_t last = -1;
    if (!options.last.empty() && !ReadLast(options.last, &last))
        return Refuse("--last: a number from 1 to 2147483647 is expected", problem);
    if (last >= 0 && query->limit >= 0)
        return Refuse("--last takes the place of a limit", problem);
    answer->order = OrderOf(options, *query, last, isTerminal);
    if (!answer->order)
        return true;
    if (query->ofFleet && !query->byReceive) {
        OrderFleet(options, last, query, answer);
        return true;
    }
    const EventOrder& order = *answer->order;
    answer->limitsItself = last < 0;
    if (asked.showCursor && answer->limitsItself && order.most >= 0)
        return Refuse(
            "--show-cursor: with --sort or --reverse a limit leaves out rows ahead of the "
            "last one; go without it",
            problem);
    query->asksForAll = true;
    if (order.keepsNewest && order.most >= 0 && !query->byReceive)
        answer->newest = order.most + (last < 0 ? 1 : 0);  // one more, to know of more
    return true;
}

bool HasText(const char* variable) {
    const char* const text = std::getenv(variable);
    return text != nullptr && *text != '\0';
}

// What suits a person at a terminal and nobody else. A trailer among the lines is for programs,
// which asked for it.
void PlanScreen(const AnswerOptions& options, bool isTerminal, AnswerPlan* answer) {
    const char* const kind = std::getenv("TERM");
    const bool isDumb = kind == nullptr || std::string_view(kind) == "dumb";
    answer->form.hasColours = isTerminal && !isDumb && !HasText("NO_COLOR");
    if (options.trailer && answer->form.name == "ndjson")
        answer->trailer = AnswerPlan::asLastLine;
    else if (options.trailer || (TalksToTerminal() && !answer->form.hasHosts))
        answer->trailer = AnswerPlan::toPeople;  // a fleet's reads a column of all that it holds
    answer->usesPager =
        isTerminal && !isDumb && !options.noPager && answer->trailer != AnswerPlan::asLastLine;
}

}  // namespace

bool PlanAnswer(const QueryOptions& options, QueryPlan* query, AnswerPlan* answer,
                std::string* problem) {
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    answer->form.name = FormName(options, isTerminal);
    answer->form.columns = TerminalColumns();
    answer->form.hasHosts = query->ofFleet;
    answer->form.isForTerminal = isTerminal;
    if (!ReadZone(options.answer, &answer->form.zone, problem))
        return false;
    if (options.withKey && answer->form.name == "table")
        return Refuse("--with-key: a table has no room for keys; -o ndjson or -o json has",
                      problem);
    if (!options.answer.countBy.empty() || !options.answer.histogram.empty()) {
        if (!ReadCounts(options, query, answer, problem))
            return false;
    } else if (!ReadFields(options, *query, &answer->form, problem) ||
               !ReadOrder(options, isTerminal, query, answer, problem)) {
        return false;
    }
    PlanScreen(options.answer, isTerminal, answer);
    const auto isKey = [](const Field& field) { return field.IsKey(); };
    const std::vector<Field>& fields = answer->counts ? answer->counts->by : answer->form.fields;
    answer->needsKeys = options.withKey || std::any_of(fields.begin(), fields.end(), isKey);
    return true;
}

Answer::Answer(const AnswerPlan& plan, Output& output)
    : form_(MakeResultForm(plan.form)), stream_(output, *form_), limitsItself_(plan.limitsItself) {
    if (plan.counts)
        first_ = &counts_.emplace(output, plan.form, *plan.counts);
    else if (plan.order)
        first_ = &ordered_.emplace(stream_, *plan.order);
}

bool Answer::TellCounts() const {
    if (!counts_)
        return true;
    if (counts_->RowsLeftOut() != 0)
        Say(std::to_string(counts_->RowsLeftOut()) + " more row(s) are left out");
    if (counts_->Ungrouped() != 0)
        Say("there are too many groups: " + std::to_string(counts_->Ungrouped()) +
            " event(s) are in none of them");
    return counts_->Ungrouped() == 0;
}

}  // namespace zel
