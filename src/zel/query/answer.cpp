#include "zel/query/answer.h"

#include <unistd.h>

#include <charconv>

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

}  // namespace

bool PlanAnswer(const QueryOptions& options, QueryPlan* query, AnswerPlan* answer,
                std::string* problem) {
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    answer->form = FormName(options, isTerminal);
    answer->columns = TerminalColumns();
    std::int64_t last = -1;
    if (!options.answer.last.empty() && !ReadLast(options.answer.last, &last)) {
        *problem = "--last: a number from 1 to 2147483647 is expected";
        return false;
    }
    if (last >= 0 && query->limit >= 0) {
        *problem = "--last takes the place of a limit";
        return false;
    }
    answer->order = OrderOf(options.answer, *query, last, isTerminal);
    if (!answer->order)
        return true;
    answer->limitsInOrder = last < 0;
    query->asksForAll = true;
    const EventOrder& order = *answer->order;
    if (order.keepsNewest && order.most >= 0 && !query->byReceive)
        answer->newest = order.most + (last < 0 ? 1 : 0);  // one more, to know of more
    return true;
}

Answer::Answer(const AnswerPlan& plan, Output& output)
    : form_(MakeResultForm(plan.form, plan.columns)),
      stream_(output, *form_),
      limitsInOrder_(plan.order && plan.limitsInOrder) {
    if (plan.order)
        ordered_.emplace(stream_, *plan.order);
}

}  // namespace zel
