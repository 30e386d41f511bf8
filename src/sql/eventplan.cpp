#include "sql/eventplan.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <new>
#include <vector>

#include "common/asciicase.h"
#include "questions/keynames.h"
#include "questions/narrowing.h"
#include "records/columns.h"
#include "records/eventtime.h"

// SQLite offers conditions that all have to hold, COLUMN OP VALUE, without the values; those come
// when the walk begins. A plan has two characters for each that is taken: the column, as 'a' plus
// its number, and the operator.
//
// Times: the store compares their texts, SQLite in the order of TimeOrder, which also reads forms
// that a host may have stored in place of the usual one. The range is widened by more than a text
// that lacks seconds or has other decimals can be out of place; one with an offset, or with a blank
// in place of T, may be out of place by a day, and is missed.
//
// Order: a fleet has one of time over all hosts, from either end. Of a store, a walk of one folder
// comes in the order of times, and so does the answer if it is made of one part; the kinds of
// several objects come one after the other.
//
// Actions and objects are names of a list, so any condition on them is tried on the list, by SQLite
// itself, and what fits is asked for. Of other columns equality alone is used, where a key decides
// it (questions/narrowing.h): what LIKE and its kin find in a path may stand in an event whose key
// could not hold that path.

namespace zel {

namespace {

// Behind the conditions of a plan: rows are to come from a fleet with the newest first.
constexpr char fromNewest = 'N';

enum Sign : char {
    none = '\0',
    equal = '=',
    oneOf = 'i',
    above = '>',
    below = '<',
    like = 'L',
    glob = 'G',
    regexp = 'R',
};

Sign SignOf(unsigned char op) {
    switch (op) {
        case SQLITE_INDEX_CONSTRAINT_EQ:
            return equal;
        case SQLITE_INDEX_CONSTRAINT_GT:
        case SQLITE_INDEX_CONSTRAINT_GE:
            return above;
        case SQLITE_INDEX_CONSTRAINT_LT:
        case SQLITE_INDEX_CONSTRAINT_LE:
            return below;
        case SQLITE_INDEX_CONSTRAINT_LIKE:
            return like;
        case SQLITE_INDEX_CONSTRAINT_GLOB:
            return glob;
        case SQLITE_INDEX_CONSTRAINT_REGEXP:
            return regexp;
        default:
            return none;
    }
}

bool IsIn(std::string_view text, std::initializer_list<std::string_view> all) {
    return std::find(all.begin(), all.end(), text) != all.end();
}

// Whether a condition may narrow the walk. Where a statement names an order of its own, text that
// is equal in it may not be so in the key.
bool IsOfUse(std::string_view column, Sign sign, std::string_view collation) {
    if (column == "time")
        return sign != regexp && (collation == TimeOrder::name || sign == like || sign == glob);
    const bool isEquality =
        (sign == equal || sign == oneOf) && IsIn(collation, {"BINARY", "NOCASE"});
    if (IsIn(column, {"action", "object"}))
        return isEquality || sign == like || sign == glob || sign == regexp;
    if (column == "host")
        return IsFleetUsed() && sign == equal && collation == "BINARY";
    return isEquality && IsIn(column, {"correlation_uid", "target_hash", "src_ip", "dst_ip"});
}

// What a condition leaves of the rows. Only the order of these numbers matters.
double ShareOf(std::string_view column) {
    return IsIn(column, {"correlation_uid", "target_hash"}) ? 0.01 : 0.25;
}

// The text of a value; none for other kinds, which a comparison may still turn into text.
std::optional<std::string> TextOf(sqlite3_value* value) {
    if (sqlite3_value_type(value) != SQLITE_TEXT)
        return std::nullopt;
    const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (text == nullptr)
        throw std::bad_alloc();
    return std::string(text, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

// One condition whose value has come.
struct Given {
    std::string_view column;
    Sign sign;
    std::vector<std::string> values;  // one, but for oneOf
};

// The values of a condition. False when one is of another kind, so that nothing follows from it;
// `*fitsNone` when no row can fit. A list of SQLite may hold nulls, which nothing equals.
bool ReadValues(sqlite3_value* value, Given* given, bool* fitsNone) {
    if (given->sign != oneOf) {
        *fitsNone = sqlite3_value_type(value) == SQLITE_NULL;
        auto text = TextOf(value);
        if (text)
            given->values.push_back(std::move(*text));
        return text.has_value();
    }
    sqlite3_value* each = nullptr;
    int result = sqlite3_vtab_in_first(value, &each);
    for (; result == SQLITE_OK; result = sqlite3_vtab_in_next(value, &each)) {
        if (sqlite3_value_type(each) == SQLITE_NULL)
            continue;
        auto text = TextOf(each);
        if (!text)
            return false;
        given->values.push_back(std::move(*text));
    }
    *fitsNone = result == SQLITE_DONE && given->values.empty();
    return result == SQLITE_DONE;
}

// A condition on a name of a list, as SQLite itself answers it.
class NameTest {
public:
    NameTest(sqlite3* database, Sign sign) {
        const char* const text = sign == like   ? "SELECT ?1 LIKE ?2"
                                 : sign == glob ? "SELECT ?1 GLOB ?2"
                                                : "SELECT ?1 REGEXP ?2";
        sqlite3_prepare_v2(database, text, -1, &statement_, nullptr);
    }
    ~NameTest() { sqlite3_finalize(statement_); }
    NameTest(const NameTest&) = delete;
    NameTest& operator=(const NameTest&) = delete;

    // None when it can't be told, such as of a bad expression.
    std::optional<bool> Fits(const std::string& name, const std::string& pattern) {
        sqlite3_reset(statement_);
        Bind(1, name);
        Bind(2, pattern);
        if (statement_ == nullptr || sqlite3_step(statement_) != SQLITE_ROW)
            return std::nullopt;
        return sqlite3_column_int(statement_, 0) != 0;
    }

private:
    void Bind(int place, const std::string& text) {
        sqlite3_bind_text(statement_, place, text.c_str(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
    }
    sqlite3_stmt* statement_ = nullptr;
};

// The names that fit a condition; none when more may fit than the list has.
std::optional<std::vector<std::string>> FittingNames(const Given& given, sqlite3* database) {
    std::vector<std::string> fitting;
    const std::vector<std::string> names = KeyNames(given.column);
    if (given.sign == equal || given.sign == oneOf) {
        for (const std::string& value : given.values) {
            const auto same = std::find_if(names.begin(), names.end(), [&](const auto& name) {
                return ZEL::EqualsNoCase(std::string_view(name), std::string_view(value));
            });
            if (same == names.end())
                return std::nullopt;
            fitting.push_back(*same);
        }
        return fitting;
    }
    NameTest test(database, given.sign);
    for (const std::string& name : names) {
        const auto fits = test.Fits(name, given.values.front());
        if (!fits)
            return std::nullopt;
        if (*fits)
            fitting.push_back(name);
    }
    return fitting;
}

std::string Moved(const std::string& time, std::int64_t milliseconds) {
    const auto at = MillisecondsIn(time);
    const auto moved = at ? EventTimeOfMilliseconds(*at + milliseconds) : std::nullopt;
    return moved ? moved->text : "";
}

// What all conditions together leave to be asked.
class Question {
public:
    Question(sqlite3* database, const TimeOrder& times) : database_(database), times_(times) {}

    void Take(const Given& given) {
        if (given.column == "time")
            TakeTime(given);
        else if (given.column == "action")
            Keep(FittingNames(given, database_), &actions_);
        else if (given.column == "object")
            Keep(FittingNames(given, database_), &objects_);
        else if (given.column == "host")
            host_ = given.values.size() == 1 ? given.values.front() : "";
        else
            rest_.push_back(given);
    }
    std::string Document(bool joinsEnrichments) const;
    const std::string& Host() const noexcept { return host_; }

private:
    using Names = std::optional<std::vector<std::string>>;

    // Of several conditions on one column, what fits all.
    static void Keep(Names fitting, Names* kept) {
        if (fitting && *kept)
            std::erase_if(**kept, [&](const std::string& name) {
                return std::find(fitting->begin(), fitting->end(), name) == fitting->end();
            });
        else if (fitting)
            *kept = std::move(fitting);
    }

    void TakeTime(const Given& given);
    void Narrow(Sign sign, const std::string& time);
    std::vector<std::string> Objects() const;
    std::vector<Narrowing> Parts() const;

    sqlite3* const database_;
    const TimeOrder& times_;
    std::string since_, until_;  // in the store's form; empty: no bound
    Names actions_, objects_;
    std::string host_;
    std::vector<Given> rest_;
};

void Question::TakeTime(const Given& given) {
    if (given.sign == like || given.sign == glob) {
        constexpr std::size_t dateLength = 10;
        const std::string& pattern = given.values.front();
        const bool isPlain =
            pattern.find_first_not_of("0123456789-") >= std::min(dateLength, pattern.size());
        const std::string date = times_.Resolve(pattern.substr(0, dateLength));
        if (!isPlain || pattern.size() < dateLength || !IsStoredTime(date))
            return;
        constexpr std::int64_t day = 86'400'000;
        Narrow(above, date);
        return Narrow(below, Moved(date, day));
    }
    // Of several times the first and the last one.
    std::vector<std::string> times;
    for (const std::string& value : given.values)
        times.push_back(times_.Resolve(value));
    if (!std::all_of(times.begin(), times.end(), IsStoredTime))
        return;  // what is no time has its place among texts, and narrows nothing
    const auto [first, last] = std::minmax_element(times.begin(), times.end());
    if (given.sign != below)
        Narrow(above, *first);
    if (given.sign != above)
        Narrow(below, *last);
}

void Question::Narrow(Sign sign, const std::string& time) {
    constexpr std::int64_t back = -2000, ahead = 120'000;
    const std::string moved = Moved(time, sign == above ? back : ahead);
    if (moved.empty())
        return;
    if (sign == above)
        since_ = std::max(since_, moved);
    else
        until_ = until_.empty() ? moved : std::min(until_, moved);
}

// The kinds to ask for; empty for all.
std::vector<std::string> Question::Objects() const {
    if (!objects_ || !std::all_of(objects_->begin(), objects_->end(), IsObjectToAsk))
        return {};
    return *objects_;
}

// The sub-queries: the kinds, each with what else narrows it. Of a list only one value can be asked
// for at a time, so longer ones are left to SQLite.
std::vector<Narrowing> Question::Parts() const {
    std::vector<Narrowing> parts;
    std::vector<std::string> objects = Objects();
    if (objects.empty())
        objects.emplace_back();
    for (const std::string& object : objects) {
        std::vector<EventCondition> conditions;
        const auto add = [&](std::string_view column, ConditionOperator op,
                             const std::string& value) {
            ConditionProblem problem;
            if (auto made = EventCondition::Make(*FindColumn(column), op, value, nullptr, &problem))
                conditions.push_back(std::move(*made));
        };
        if (!object.empty())
            add("object", ConditionOperator::equals, object);
        for (const Given& given : rest_) {
            const bool isAddress = given.column.ends_with("_ip");
            if (given.values.size() == 1)
                add(given.column,
                    isAddress ? ConditionOperator::inNetwork : ConditionOperator::equals,
                    given.values.front());
        }
        Narrowing& part = parts.emplace_back(NarrowingOf(conditions));
        part.since = since_;
        part.until = until_;
        if (actions_)
            part.actions = *actions_;
    }
    return parts;
}

std::string Question::Document(bool joinsEnrichments) const {
    std::string events;
    for (const Narrowing& part : Parts())
        events.append(events.empty() ? "" : ",").append(SubQueryOf(part));
    return R"({"event_query":{"events":[)" + events + "]" +
           (joinsEnrichments ? R"(,"include_enrichments":true)" : "") + "}}";
}

bool IsByTime(const sqlite3_index_info& info) {
    return info.nOrderBy == 1 && info.aOrderBy[0].iColumn >= 0 &&
           Columns()[static_cast<std::size_t>(info.aOrderBy[0].iColumn)].name == "time";
}

// Whether rows come in the order that the statement asks for. A fleet gives them from either end.
bool ComesInOrder(const sqlite3_index_info& info, bool isOnePart, SqlStore& store,
                  std::string* plan) {
    if (!IsByTime(info))
        return false;
    const bool isFromNewest = info.aOrderBy[0].desc != 0;
    if (!IsFleetUsed())
        return isOnePart && !isFromNewest && store.IsOneFolder();
    if (isFromNewest)
        *plan += fromNewest;
    return true;
}

}  // namespace

int PlanEvents(sqlite3_index_info& info, bool hasColumns, SqlStore& store, std::string* plan) {
    bool isOnePart = true;
    for (int i = 0, taken = 0; i < info.nConstraint; ++i) {
        const auto& condition = info.aConstraint[i];
        if (condition.usable == 0 || condition.iColumn < 0 ||
            (!hasColumns && condition.iColumn != 0))
            continue;
        const std::string_view column = Columns()[static_cast<std::size_t>(condition.iColumn)].name;
        Sign sign = SignOf(condition.op);
        if (sign == none || !IsOfUse(column, sign, sqlite3_vtab_collation(&info, i)))
            continue;
        if (sign == equal && sqlite3_vtab_in(&info, i, 1) != 0)
            sign = oneOf;
        isOnePart = isOnePart && (column != "object" || sign == equal);
        info.aConstraintUsage[i].argvIndex = ++taken;
        plan->append({static_cast<char>('a' + condition.iColumn), static_cast<char>(sign)});
        info.estimatedCost *= ShareOf(column);
        info.estimatedRows = static_cast<sqlite3_int64>(info.estimatedCost) + 1;
    }
    info.orderByConsumed = ComesInOrder(info, isOnePart, store, plan) ? 1 : 0;
    return SQLITE_OK;
}

std::optional<EventWalk::Question> QuestionFor(const std::string& plan,
                                               std::span<sqlite3_value*> values, sqlite3* database,
                                               const TimeOrder& times, bool joinsEnrichments) {
    Question question(database, times);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto column = static_cast<std::size_t>(plan[2 * i] - 'a');
        Given given{Columns()[column].name, static_cast<Sign>(plan[2 * i + 1]), {}};
        bool fitsNone = false;
        const bool isText = ReadValues(values[i], &given, &fitsNone);
        if (fitsNone)
            return std::nullopt;
        if (isText)
            question.Take(given);
    }
    const auto order = !IsFleetUsed()               ? IFleetCallback::Order::asStored
                       : plan.ends_with(fromNewest) ? IFleetCallback::Order::newestFirst
                                                    : IFleetCallback::Order::oldestFirst;
    return EventWalk::Question{question.Document(joinsEnrichments), order, question.Host()};
}

}  // namespace zel
