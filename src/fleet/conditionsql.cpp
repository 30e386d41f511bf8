#include "fleet/conditionsql.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "fleet/fleettable.h"
#include "fleet/patternsql.h"
#include "fleet/sqltext.h"
#include "zelstore/query/pattern.h"

// The same conditions that a store tests on its keys, and combined as it does (queryfilter.cpp):
// fields by AND; within a field the positive values ahead of the first negative one, in byte order,
// by OR, and from that one on all together.
//
// Letter case is folded on both sides, to lower case where that is all the same, so that the
// indexes serve, and to upper case for the order of values: _ stands between the two.
//
// What can't be said is left out where that lets more through: a whole list where it is one of
// alternatives, itself alone where all have to hold.

namespace zel::fleet {

namespace {

namespace Schema = ZEL::Schema;
using ZEL::KeyField;

constexpr const char *never = "0", *always = "1";

// Values of these are shared by a large part of all rows.
bool IsCommon(KeyField field) {
    return field == KeyField::objectType || field == KeyField::action ||
           field == KeyField::typeId || field == KeyField::targetTypeId;
}

// A condition of a field. What is not known is empty.
struct Condition {
    std::string sql;
    bool isExact = true;
    bool leavesFew = false;
};

class FieldConditions {
public:
    FieldConditions(KeyField field, ConditionsSql* all)
        : field_(field), column_(ColumnOf(field)), all_(all) {}

    // Values come in byte order.
    void Add(const std::string& value, const Schema::Operator& op) {
        isTogether_ = isTogether_ || op.op == Schema::operatorDoesNotEqual ||
                      op.op == Schema::operatorDoesNotContain;
        if (op.op == Schema::operatorEquals && !isTogether_)
            AddListed(listed_[op.caseSensitive ? 1 : 0], value, op);
        else if (op.op == Schema::operatorDoesNotEqual)
            AddListed(unlisted_[op.caseSensitive ? 1 : 0], value, op);
        else
            (isTogether_ ? together_ : alone_).push_back(ConditionOf(value, op));
    }

    // Adds what all of them come to.
    void Finish() {
        for (const bool isExactly : {false, true}) {
            AddList(listed_[isExactly ? 1 : 0], isExactly, " = ", " IN ", &alone_);
            AddList(unlisted_[isExactly ? 1 : 0], isExactly, " != ", " NOT IN ", &together_);
        }
        Condition any = AnyOf(alone_);
        if (isTogether_)
            any = AnyOf({std::move(any), AllOf(together_)});
        all_->isExact = all_->isExact && any.isExact;
        const std::string present = Present();
        if (any.sql.empty() && present.empty())
            return;
        all_->leavesFew = all_->leavesFew || (any.leavesFew && !IsCommon(field_));
        std::string sql = present;
        if (!any.sql.empty())
            sql.append(sql.empty() ? "" : " AND ").append("(").append(any.sql).append(")");
        all_->sql.append(all_->sql.empty() ? "" : " AND ").append(sql);
    }

private:
    // Nothing holds for a field that the row has not.
    std::string Present() const {
        const std::uint16_t bit = PresentBitOf(field_);
        const bool isAlways = bit == 0 || field_ == KeyField::targetTypeId;
        return isAlways ? "" : "bitAnd(present, " + std::to_string(bit) + ") != 0";
    }
    std::string Column(const Schema::Operator& op) const {
        return op.caseSensitive ? column_ : "lower(" + column_ + ")";
    }
    static std::string Folded(const std::string& value, const Schema::Operator& op) {
        return op.caseSensitive ? value : LowerAscii(value);
    }
    static std::string Like(std::string_view before, const std::string& value,
                            std::string_view behind) {
        return SqlText(std::string(before) + LikeText(value) + std::string(behind));
    }

    // Many values are one condition.
    struct List {
        std::string sql;
        std::size_t count = 0;
    };
    static void AddListed(List& list, const std::string& value, const Schema::Operator& op) {
        list.sql.append(list.count++ == 0 ? "" : ", ");
        AppendSqlText(list.sql, Folded(value, op));
    }
    void AddList(const List& list, bool isExactly, const char* one, const char* many,
                 std::vector<Condition>* to) const {
        if (list.count == 0)
            return;
        const std::string column = Column({Schema::operatorEquals, isExactly});
        to->push_back(
            {list.count == 1 ? column + one + list.sql : column + many + "(" + list.sql + ")", true,
             to == &alone_});
    }

    Condition ConditionOf(const std::string& value, const Schema::Operator& op) {
        constexpr std::size_t telling = 3;  // bytes that few values hold
        const std::string column = Column(op), folded = Folded(value, op);
        const bool tellsMuch = value.size() >= telling;
        switch (op.op) {
            case Schema::operatorEquals:
                return {column + " = " + SqlText(folded), true, true};
            case Schema::operatorContains:
                // A list of alternatives in which one is empty is a thing that newer servers
                // answer wrongly for an empty text.
                if (value.empty())
                    return {always};
                return {column + " LIKE " + Like("%", folded, "%"), true, tellsMuch};
            case Schema::operatorDoesNotContain:
                return {column + " NOT LIKE " + Like("%", folded, "%")};
            case Schema::operatorStartsWith:
                return {"startsWith(" + column + ", " + SqlText(folded) + ")", true, tellsMuch};
            case Schema::operatorEndsWith:
                return {"endsWith(" + column + ", " + SqlText(folded) + ")", true, tellsMuch};
            case Schema::operatorGreaterThan:
                return Ordered(value, op, " > ");
            case Schema::operatorGreaterThanOrEqual:
                return Ordered(value, op, " >= ");
            case Schema::operatorLessThan:
                return Ordered(value, op, " < ");
            case Schema::operatorLessThanOrEqual:
                return Ordered(value, op, " <= ");
            case Schema::operatorFitsPattern:
                return PatternCondition(value, op);
            default:
                return {never};  // as in a store
        }
    }
    Condition Ordered(const std::string& value, const Schema::Operator& op,
                      std::string_view sign) const {
        return op.caseSensitive ? Condition{column_ + std::string(sign) + SqlText(value)}
                                : Condition{"upper(" + column_ + ")" + std::string(sign) +
                                            SqlText(UpperAscii(value))};
    }
    Condition PatternCondition(const std::string& expression, const Schema::Operator& op) {
        try {
            const ZEL::Pattern compiled(expression, op.caseSensitive);
        } catch (const std::runtime_error& error) {
            if (all_->problem.empty())
                all_->problem = Place() + ": the pattern can't be read: " + error.what();
            return {never};
        }
        PatternSql pattern = SqlOfPattern(column_, expression, op.caseSensitive);
        if (!pattern.refused.empty() && all_->refused.empty())
            all_->refused = Place() + ": the fleet can't test " + pattern.refused + " (byte " +
                            std::to_string(pattern.refusedAt + 1) +
                            " of the pattern): ask without it, or on one machine";
        const bool leavesFew = !pattern.sql.empty();
        return {std::move(pattern.sql), pattern.isExact, leavesFew};
    }
    std::string Place() const { return std::string(ZEL::KeyFieldName(field_)); }

    static Condition AnyOf(const std::vector<Condition>& conditions) {
        if (conditions.empty())
            return {never, true, true};
        Condition any{"", true, true};
        bool isOpen = false;
        for (const Condition& each : conditions) {
            if (conditions.size() > 1 && each.sql == never)
                continue;
            isOpen = isOpen || each.sql.empty();
            any.isExact = any.isExact && each.isExact;
            any.leavesFew = any.leavesFew && each.leavesFew;
            any.sql.append(any.sql.empty() ? "" : " OR ").append(Bracketed(each.sql, conditions));
        }
        if (isOpen)
            return {"", false, false};
        if (any.sql.empty())
            return {never, true, true};
        return any;
    }
    static Condition AllOf(const std::vector<Condition>& conditions) {
        Condition all;
        for (const Condition& each : conditions) {
            all.isExact = all.isExact && each.isExact;
            all.leavesFew = all.leavesFew || each.leavesFew;
            if (!each.sql.empty())
                all.sql.append(all.sql.empty() ? "" : " AND ")
                    .append(Bracketed(each.sql, conditions));
        }
        return all;
    }
    static std::string Bracketed(const std::string& sql, const std::vector<Condition>& of) {
        return of.size() > 1 ? "(" + sql + ")" : sql;
    }

    const KeyField field_;
    const std::string column_;
    ConditionsSql* const all_;
    List listed_[2], unlisted_[2];  // without and with case
    std::vector<Condition> alone_, together_;
    bool isTogether_ = false;  // from the first negative value on
};

}  // namespace

ConditionsSql SqlOfConditions(const Schema::FilterMap& conditions) {
    ConditionsSql all;
    for (const auto& [name, values] : conditions) {
        const auto field = ZEL::FindKeyField(name);
        if (!field || ColumnOf(*field).empty()) {
            all.sql += (all.sql.empty() ? "" : " AND ") + std::string(never);
            continue;
        }
        FieldConditions each(*field, &all);
        for (const auto& [value, op] : values)
            each.Add(value, op);
        each.Finish();
    }
    return all;
}

}  // namespace zel::fleet
