#include "fleet/fleetquestion.h"

#include <cpprest/json.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "common/errorreport.h"
#include "fleet/conditionsql.h"
#include "fleet/fleettable.h"
#include "fleet/fleettime.h"
#include "fleet/sqltext.h"
#include "zelstore/query/keytester.h"
#include "zelstore/schema/eventquery.h"

// From a document to statements.
//
// Each sub-query becomes the conditions that a store would test (subqueryterms.h), and those become
// SQL. Sub-queries that follow each other share a statement, which sorts their rows by the first of
// them that each fits. One that SQL can say in a wider sense only stands alone, since a row would
// else be sorted to it that it does not want; which rows it wants is then decided by the store's
// own test of a key. Behind the first statement a row may have come already: whether an earlier
// sub-query wants it is decided by its key as well, so that nothing has to be remembered.
//
// Rows may stand in the table several times. All that a condition looks at follows from the key, so
// rows are found first and made single then: they come one behind the other, the latest text ahead,
// and Decide lets the first of them through. Were the server to do that (LIMIT 1 BY), it would sort
// all that it finds for each page, and not only as much as the page has.
//
// A page ends at a row and the next one goes on behind it, by the order itself. Hours are sorted
// first and told as conditions too: by them the table is sorted, so that a server can begin with
// the first hour, and passes over those ahead of a page.

namespace zel::fleet {

namespace {

namespace Schema = ZEL::Schema;
using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr std::string_view hourColumn = "substring(begin_time, 1, 13)";
constexpr std::size_t hourLength = 13;

// A sub-query.
struct Part {
    bool isByReceive = false;
    std::string range, conditions;  // empty: all
    bool isExact = true;
};

// Parts that share a statement: those from `first` on.
struct Step {
    std::size_t first = 0, count = 1;
};

void And(std::string& sql, std::string_view condition) {
    if (!condition.empty())
        sql.append(sql.empty() ? "" : " AND ").append(condition);
}

std::string HourIs(std::string_view sign, std::string_view time) {
    return std::string(hourColumn) + std::string(sign) + SqlText(time.substr(0, hourLength));
}

// A start of another form than times have is held against whole keys, as a walk is begun.
std::string RangeOf(const ZEL::SubQueryTerms& terms) {
    std::string sql;
    if (!HasUsualForm(terms.time)) {
        sql = "key >= " + SqlText(terms.startKey);
    } else {
        sql = HourIs(" >= ", terms.time) + " AND ";
        if (terms.sequence == 0)
            sql += "begin_time >= " + SqlText(terms.time);
        else
            sql += "(begin_time, sequence) >= (" + SqlText(terms.time) + ", " +
                   std::to_string(terms.sequence) + ")";
    }
    if (!terms.endTime.empty())
        And(sql, HourIs(" <= ", terms.endTime) + " AND begin_time <= " + SqlText(terms.endTime));
    return sql;
}

// None for a time that receipts can't be held against.
std::optional<std::string> ReceiveRangeOf(const ZEL::SubQueryTerms& terms) {
    const auto start = MillisecondsOf(terms.time);
    const auto end = MillisecondsOf(terms.endTime);
    if (!start || (!terms.endTime.empty() && !end))
        return std::nullopt;
    std::string sql = "receive_ms >= " + std::to_string(*start);
    if (terms.sequence != 0)
        sql += " AND (receive_ms, receive_no) >= (" + std::to_string(*start) + ", " +
               std::to_string(terms.sequence) + ")";
    if (end)
        sql += " AND receive_ms <= " + std::to_string(*end);
    return sql;
}

// Whether a range is short enough for a look at all that is in it.
bool IsShort(const ZEL::SubQueryTerms& terms) {
    constexpr std::uint64_t day = 86'400'000;  // milliseconds
    const auto start = MillisecondsOf(terms.time), end = MillisecondsOf(terms.endTime);
    return start && end && *end < *start + day;
}

std::string HostCondition(const std::vector<std::string>& hosts) {
    std::string list;
    for (const std::string& host : hosts) {
        list.append(list.empty() ? "" : ", ");
        AppendSqlText(list, host);
    }
    return hosts.empty() ? "" : hosts.size() == 1 ? "host = " + list : "host IN (" + list + ")";
}

// What the names of a row's columns are followed by in an order.
std::string Ordered(std::initializer_list<std::string_view> columns, bool isDescending) {
    std::string sql;
    for (const std::string_view column : columns)
        sql.append(sql.empty() ? "" : ", ").append(column).append(isDescending ? " DESC" : "");
    return sql;
}

}  // namespace

struct FleetQuestion::State {
    FleetScope scope;
    Schema::EventQuery query;
    std::vector<Part> parts;
    std::vector<Step> steps;
    ZEL::KeyTester tester;  // a sub-query for each part

    bool Add(std::size_t number, std::string* problem);
    bool AddPart(const ZEL::SubQueryTerms& terms, const std::string& place, std::string* problem);
    void MakeSteps();
    bool IsMerged() const noexcept { return scope.order != FleetScope::Order::parts; }
    std::string PartColumn(const Step& step) const;
    std::string Where(const Step& step) const;
    std::string EventsPage(const Step& step, std::uint64_t rows, const FleetRow* after) const;
    std::string ReceiptsPage(const Step& step, std::uint64_t rows, const FleetRow* after) const;
    bool IsRepeated(std::size_t step, const FleetRow& row);
    bool Wants(std::size_t step, const FleetRow& row);

    // What was decided on last, without its text.
    FleetRow decided;
    std::optional<std::size_t> decidedStep;
};

bool FleetQuestion::State::Add(std::size_t number, std::string* problem) {
    const std::string place = "event_query.events[" + std::to_string(number) + "]";
    ZEL::SubQueryTerms terms;
    const HRESULT result = ReadTerms(query.events[number], &terms);
    if (result == hr::invalidArgument || result == hr::invalidData || result == hr::timeTextLength)
        *problem = place + ": its times make no range";
    else if (Failed(result))
        *problem = place + ": its conditions can't be made";
    else if (!terms.hasTime)
        *problem = place + ": there is no time; begin_time or receive_time has to tell the start";
    else
        return AddPart(terms, place, problem);
    return false;
}

bool FleetQuestion::State::AddPart(const ZEL::SubQueryTerms& terms, const std::string& place,
                                   std::string* problem) {
    Part part;
    part.isByReceive = terms.family == ZEL::familyReceive;
    tester.Add(terms);
    if (part.isByReceive) {
        const auto range = ReceiveRangeOf(terms);
        if (!range || IsMerged()) {
            *problem = place + (range ? ": rows by time of receipt have one order alone"
                                      : ": the fleet knows receipts by times such as "
                                        "2026-11-12T10:00:00.000Z");
            return false;
        }
        part.range = *range;
        part.conditions = terms.conditions.empty() ? "" : "0";  // a receipt has no fields
    } else {
        ConditionsSql conditions = SqlOfConditions(terms.conditions);
        if (!conditions.problem.empty() ||
            (!conditions.refused.empty() && !conditions.leavesFew && !IsShort(terms))) {
            *problem = place + ", " +
                       (conditions.problem.empty() ? conditions.refused : conditions.problem);
            return false;
        }
        part.range = RangeOf(terms);
        part.conditions = std::move(conditions.sql);
        part.isExact = conditions.isExact;
    }
    parts.push_back(std::move(part));
    return true;
}

void FleetQuestion::State::MakeSteps() {
    constexpr std::size_t mostParts = 64;  // of a statement
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const bool isAlone = parts[i].isByReceive || !parts[i].isExact;
        const bool canJoin = !steps.empty() && steps.back().count < mostParts && !isAlone &&
                             !parts[i - 1].isByReceive && parts[i - 1].isExact;
        if (!steps.empty() && (IsMerged() || canJoin))
            ++steps.back().count;
        else
            steps.push_back({i, 1});
    }
}

// The number of the first part that a row fits; empty where there is one part.
std::string FleetQuestion::State::PartColumn(const Step& step) const {
    if (step.count == 1 || IsMerged())
        return "";
    const bool isOneRange =
        std::all_of(parts.begin() + static_cast<std::ptrdiff_t>(step.first),
                    parts.begin() + static_cast<std::ptrdiff_t>(step.first + step.count),
                    [&](const Part& part) { return part.range == parts[step.first].range; });
    std::string sql = "multiIf(";
    for (std::size_t i = 0; i + 1 < step.count; ++i) {
        const Part& part = parts[step.first + i];
        std::string test = isOneRange ? "" : part.range;
        And(test, part.conditions);
        sql += (test.empty() ? "1" : test) + ", " + std::to_string(i) + ", ";
    }
    return sql + std::to_string(step.count - 1) + ")";
}

// A range that all parts have stands ahead of them, where it serves to pass over rows.
std::string FleetQuestion::State::Where(const Step& step) const {
    const Part& first = parts[step.first];
    bool isOneRange = true, isAll = false;
    for (std::size_t i = 0; i < step.count; ++i)
        isOneRange = isOneRange && parts[step.first + i].range == first.range;
    std::string any;
    for (std::size_t i = 0; i < step.count; ++i) {
        const Part& part = parts[step.first + i];
        std::string test = isOneRange ? "" : part.range;
        And(test, part.conditions);
        isAll = isAll || test.empty();
        any.append(any.empty() ? "" : " OR ");
        any.append(step.count == 1 ? test : "(" + test + ")");
    }
    std::string sql = HostCondition(scope.hosts);
    if (isOneRange)
        And(sql, first.range);
    if (!isAll)
        And(sql, step.count == 1 ? any : "(" + any + ")");
    return sql;
}

std::string FleetQuestion::State::EventsPage(const Step& step, std::uint64_t rows,
                                             const FleetRow* after) const {
    const bool isDescending = scope.order == FleetScope::Order::newestFirst;
    const std::string part = PartColumn(step);
    std::string where = Where(step);
    if (after != nullptr) {
        const std::string_view sign = isDescending ? " < " : " > ";
        if (part.empty()) {
            And(where, HourIs(isDescending ? " <= " : " >= ", after->beginTime));
            And(where, "(begin_time, sequence, key, host)" + std::string(sign) + "(");
        } else {
            And(where, "(" + part + ", begin_time, sequence, key, host)" + std::string(sign) + "(" +
                           std::to_string(after->part) + ", ");
        }
        where += SqlText(after->beginTime) + ", " + std::to_string(after->sequence) + ", " +
                 SqlText(after->key) + ", " + SqlText(after->host) + ")";
    }
    std::string sql = "SELECT ";
    if (!part.empty())
        sql += part + " AS part, ";
    sql += "host, begin_time, sequence, receive_ms, receive_no, key, event FROM " +
           std::string(eventsTable) + " WHERE " + where + " ORDER BY ";
    if (!part.empty())
        sql += "part, ";
    sql += Ordered({hourColumn, "begin_time", "sequence", "key", "host"}, isDescending) +
           ", receive_ms DESC, receive_no DESC LIMIT " + std::to_string(rows) +
           " FORMAT JSONEachRow";
    return sql;
}

std::string FleetQuestion::State::ReceiptsPage(const Step& step, std::uint64_t rows,
                                               const FleetRow* after) const {
    std::string where = Where(step);
    if (after != nullptr) {
        And(where, "receive_ms >= " + std::to_string(after->receiveMs));
        And(where, "(receive_ms, receive_no, host, key) > (" + std::to_string(after->receiveMs) +
                       ", " + std::to_string(after->receiveNo) + ", " + SqlText(after->host) +
                       ", " + SqlText(after->key) + ")");
    }
    return "SELECT host, begin_time, sequence, receive_ms, receive_no, key, event FROM " +
           std::string(eventsTable) + " WHERE " + where +
           " ORDER BY receive_ms, receive_no, host, key LIMIT " + std::to_string(rows) +
           " FORMAT JSONEachRow";
}

// Whether it is the row before once more; a receipt is another one when its time is.
bool FleetQuestion::State::IsRepeated(std::size_t step, const FleetRow& row) {
    const bool isByReceive = parts[steps[step].first].isByReceive;
    const bool isRepeated =
        decidedStep == step && decided.key == row.key && decided.host == row.host &&
        (!isByReceive ||
         (decided.receiveMs == row.receiveMs && decided.receiveNo == row.receiveNo));
    decidedStep = step;
    decided.key = row.key;
    decided.host = row.host;
    decided.receiveMs = row.receiveMs;
    decided.receiveNo = row.receiveNo;
    return isRepeated;
}

// Only what the statement leaves open is tested.
bool FleetQuestion::State::Wants(std::size_t number, const FleetRow& row) {
    const Step& step = steps[number];
    const auto passes = [&](std::size_t part) { return tester.Passes(part, row.key); };
    if (parts[step.first].isByReceive)
        return true;
    if (IsMerged()) {
        bool isOpen = false, isWanted = false;
        for (std::size_t i = 0; i < parts.size(); ++i)
            isOpen = isOpen || !parts[i].isExact;
        for (std::size_t i = 0; isOpen && !isWanted && i < parts.size(); ++i)
            isWanted = passes(i);
        return isWanted || !isOpen;
    }
    if (!parts[step.first].isExact && !passes(step.first))
        return false;
    for (std::size_t i = 0; i < step.first; ++i)
        if (!parts[i].isByReceive && passes(i))
            return false;
    return true;
}

FleetQuestion::FleetQuestion(std::unique_ptr<State> state) : state_(std::move(state)) {}
FleetQuestion::~FleetQuestion() = default;

std::unique_ptr<FleetQuestion> FleetQuestion::Make(const std::string& document, FleetScope scope,
                                                   std::string* problem) {
    auto state = std::make_unique<State>();
    state->scope = std::move(scope);
    try {
        state->query.FromJson(web::json::value::parse(utility::conversions::to_string_t(document)));
        if (state->query.events.empty()) {
            *problem = "event_query: there is no event to ask for";
            return nullptr;
        }
        for (std::size_t i = 0; i < state->query.events.size(); ++i)
            if (!state->Add(i, problem))
                return nullptr;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        *problem = std::string("the document can't be read: ") + error.what();
        return nullptr;
    }
    state->MakeSteps();
    return std::unique_ptr<FleetQuestion>(new FleetQuestion(std::move(state)));
}

std::int64_t FleetQuestion::MostRows() const noexcept {
    const std::int64_t limit = state_->query.limit_result_count;
    return limit == 0 ? 1 : limit;
}
bool FleetQuestion::JoinsEnrichments() const noexcept {
    return state_->query.include_enrichments;
}
bool FleetQuestion::LeavesOutLive() const noexcept {
    return state_->query.no_live_enriched_events;
}
std::size_t FleetQuestion::Steps() const noexcept {
    return state_->steps.size();
}
bool FleetQuestion::IsByReceive(std::size_t step) const noexcept {
    return state_->parts[state_->steps[step].first].isByReceive;
}

bool FleetQuestion::GivesTooMuch(std::size_t number) const noexcept {
    const Step& step = state_->steps[number];
    bool isExact = number == 0;
    for (std::size_t i = 0; i < step.count; ++i)
        isExact = isExact && state_->parts[step.first + i].isExact;
    return !isExact && !IsByReceive(number);
}

std::string FleetQuestion::Page(std::size_t number, std::uint64_t rows,
                                const FleetRow* after) const {
    const Step& step = state_->steps[number];
    return IsByReceive(number) ? state_->ReceiptsPage(step, rows, after)
                               : state_->EventsPage(step, rows, after);
}

FleetQuestion::Verdict FleetQuestion::Decide(std::size_t step, const FleetRow& row) {
    if (state_->IsRepeated(step, row))
        return Verdict::unwanted;
    try {
        return state_->Wants(step, row) ? Verdict::wanted : Verdict::unwanted;
    } catch (const std::exception& error) {
        wm::ReportError(hr::unexpected, wm::reportLabel::lostRow, "Exception", error.what());
        return Verdict::lost;
    }
}

std::string HostsStatement(const std::vector<std::string>& hosts, std::uint64_t sinceMs) {
    std::string where = HostCondition(hosts);
    if (sinceMs != 0)
        And(where, "receive_ms >= " + std::to_string(sinceMs));
    return "SELECT host, count() AS events, min(receive_ms) AS oldest_ms, max(receive_ms) AS "
           "newest_ms FROM " +
           std::string(eventsTable) + (where.empty() ? "" : " WHERE " + where) +
           " GROUP BY host ORDER BY host FORMAT JSONEachRow";
}

}  // namespace zel::fleet
