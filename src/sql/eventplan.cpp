#include "sql/eventplan.h"

#include <algorithm>

#include "common/jsontext.h"
#include "records/columns.h"
#include "records/eventtime.h"

// SQLite offers conditions that all have to hold, COLUMN OP VALUE, without the values; those come
// when the walk begins. A plan has two characters for each that is taken: the column, as 'a' plus
// its number, and the operator.
//
// Times: the store compares their texts, SQLite in the order of TimeOrder, which also reads forms
// that a host may have stored in place of the usual one. The range is widened by more than such
// texts can be out of place.

namespace zel {

namespace {

constexpr char isEqual = '=', isAbove = '>', isBelow = '<';

std::size_t TimeColumn() {
    return static_cast<std::size_t>(FindColumn("time") - Columns().data());
}

char SignOf(unsigned char op) {
    switch (op) {
        case SQLITE_INDEX_CONSTRAINT_EQ:
            return isEqual;
        case SQLITE_INDEX_CONSTRAINT_GT:
        case SQLITE_INDEX_CONSTRAINT_GE:
            return isAbove;
        case SQLITE_INDEX_CONSTRAINT_LT:
        case SQLITE_INDEX_CONSTRAINT_LE:
            return isBelow;
        default:
            return '\0';
    }
}

// Both in the store's form.
struct Range {
    std::string since, until;
};

std::string Moved(const std::string& time, std::int64_t milliseconds) {
    const auto at = MillisecondsIn(time);
    const auto moved = at ? EventTimeOfMilliseconds(*at + milliseconds) : std::nullopt;
    return moved ? moved->text : "";
}

// Narrows the range to a condition's; what is no time has its place among texts, and narrows
// nothing.
void Narrow(Range* range, char sign, const std::string& time) {
    constexpr std::int64_t back = -2000, ahead = 120'000;
    if (!IsStoredTime(time))
        return;
    if (sign != isBelow)
        range->since = std::max(range->since, Moved(time, back));
    const std::string until = sign != isAbove ? Moved(time, ahead) : "";
    if (!until.empty())
        range->until = range->until.empty() ? until : std::min(range->until, until);
}

std::string SubQuery(const Range& range) {
    const std::string since = range.since.empty() ? "1601-01-01T00:00:00.000Z" : range.since;
    std::string text = R"({"begin_time":{"operator":{"value":"greater_than_or_equal"},"value":)" +
                       wm::JsonString(since) + "}";
    if (!range.until.empty())
        text += R"(,"end_time":{"operator":{"value":"less_than_or_equal"},"value":)" +
                wm::JsonString(range.until) + "}";
    return text + "}";
}

}  // namespace

int PlanEvents(sqlite3_index_info& info, bool, std::string* plan) {
    constexpr double share = 4;  // of the rows, by each end of a range
    for (int i = 0, taken = 0; i < info.nConstraint; ++i) {
        const auto& condition = info.aConstraint[i];
        const char sign = SignOf(condition.op);
        if (condition.usable == 0 || sign == '\0' ||
            condition.iColumn != static_cast<int>(TimeColumn()) ||
            std::string_view(sqlite3_vtab_collation(&info, i)) != TimeOrder::name)
            continue;
        info.aConstraintUsage[i].argvIndex = ++taken;
        plan->append({static_cast<char>('a' + condition.iColumn), sign});
        info.estimatedCost /= share;
        info.estimatedRows = std::max<sqlite3_int64>(1, info.estimatedRows / 4);
    }
    return SQLITE_OK;
}

std::optional<std::string> DocumentFor(const std::string& plan, std::span<sqlite3_value*> values,
                                       const TimeOrder& times, bool joinsEnrichments) {
    Range range;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const int type = sqlite3_value_type(values[i]);
        if (type == SQLITE_NULL)
            return std::nullopt;  // nothing compares with null
        if (type != SQLITE_TEXT)
            continue;
        const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(values[i]));
        if (text == nullptr)
            throw std::bad_alloc();
        Narrow(&range, plan[2 * i + 1],
               times.Resolve({text, static_cast<std::size_t>(sqlite3_value_bytes(values[i]))}));
    }
    return R"({"event_query":{"events":[)" + SubQuery(range) + "]" +
           (joinsEnrichments ? R"(,"include_enrichments":true)" : "") + "}}";
}

}  // namespace zel
