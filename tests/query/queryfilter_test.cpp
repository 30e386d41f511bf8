#include "zelstore/query/queryfilter.h"

#include <gtest/gtest.h>

namespace ZEL {
namespace {

using Schema::FilterMap;
using Schema::Operator;

bool Passes(const FilterMap& conditions, const std::string& key) {
    KeyFields fields;
    SplitKeyFields(key, &fields);
    return QueryFilter(conditions).MatchesFilter(fields);
}

TEST(QueryFilter, OperatorsCompareBytes) {
    const struct {
        std::int32_t op;
        bool caseSensitive;
        const char* value;
        const char* text;
        bool holds;
    } rows[] = {
        {Schema::operatorEquals, false, "ABC", "abc", true},
        {Schema::operatorEquals, true, "ABC", "abc", false},
        {Schema::operatorDoesNotEqual, false, "ABC", "abc", false},
        {Schema::operatorDoesNotEqual, true, "ABC", "abc", true},
        {Schema::operatorContains, false, "B", "abc", true},
        {Schema::operatorContains, true, "B", "abc", false},
        {Schema::operatorDoesNotContain, false, "x", "abc", true},
        {Schema::operatorStartsWith, false, "AB", "abc", true},
        {Schema::operatorStartsWith, true, "AB", "abc", false},
        {Schema::operatorEndsWith, false, "BC", "abc", true},
        {Schema::operatorGreaterThan, true, "9", "42", false},  // as text
        {Schema::operatorGreaterThan, true, "42", "42", false},
        {Schema::operatorGreaterThanOrEqual, true, "42", "42", true},
        {Schema::operatorLessThan, true, "9", "42", true},
        {Schema::operatorLessThan, true, "42", "421", false},
        {Schema::operatorLessThanOrEqual, false, "B", "a", true},
        {Schema::operatorLessThan, true, "z", "\xC3\xA9", false},  // bytes are unsigned
        {Schema::operatorEquals, false, "\xC3\x89", "\xC3\xA9", false},
        {Schema::operatorFitsPattern, false, "A.c", "abc", true},
        {Schema::operatorFitsPattern, false, "b", "abc", false},  // the whole text
        {0, true, "abc", "abc", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Passes({{"f", {{row.value, Operator(row.op, row.caseSensitive)}}}},
                         std::string("p<f>") + row.text),
                  row.holds)
            << row.op << " " << row.value << " " << row.text;
}

TEST(QueryFilter, ListsAndFieldsCombine) {
    const Operator is(Schema::operatorContains, true), not_(Schema::operatorDoesNotContain, true);
    const struct {
        FilterMap conditions;
        const char* key;
        bool passes;
    } rows[] = {
        {{{"f", {}}}, "p<f>a", false},  // a list without values
        {{{"f", {{"a", is}, {"b", is}}}}, "p<f>xbx", true},
        {{{"f", {{"a", is}, {"b", is}}}}, "p<f>x", false},
        {{{"f", {{"a", not_}, {"b", not_}}}}, "p<f>x", true},
        {{{"f", {{"a", not_}, {"b", not_}}}}, "p<f>xb", false},
        // A positive condition ahead of the first negative one, in byte order, suffices alone...
        {{{"f", {{"a", is}, {"b", not_}}}}, "p<f>ab", true},
        {{{"f", {{"a", is}, {"b", not_}}}}, "p<f>x", true},
        // ... and from that one on every condition must hold.
        {{{"f", {{"a", not_}, {"b", is}}}}, "p<f>x", false},
        {{{"f", {{"a", not_}, {"b", is}}}}, "p<f>b", true},
        {{{"f", {{"a", not_}, {"b", is}, {"c", not_}}}}, "p<f>x", false},
        {{{"f", {{"a", is}}}, {"g", {{"b", is}}}}, "p<f>a<g>a", false},
        {{{"f", {{"x", not_}}}}, "p<g>a", false},  // a field that is absent
        {{{"target_type_id", {{"1", not_}}}}, "p<object_type>file", true},  // reads as empty
    };
    for (const auto& row : rows)
        EXPECT_EQ(Passes(row.conditions, row.key), row.passes) << &row - rows << " " << row.key;
}

// 1, 0, or -1 when a pattern throws.
int Answer(QueryFilter& filter, const std::string& key) {
    KeyFields fields;
    SplitKeyFields(key, &fields);
    try {
        return filter.MatchesFilter(fields);
    } catch (const std::exception&) {
        return -1;
    }
}

TEST(QueryFilter, PatternsAreAskedOnlyWhereNothingElseDecides) {
    const Operator is(Schema::operatorEquals, true), not_(Schema::operatorDoesNotEqual, true),
        fits(Schema::operatorFitsPattern, true);
    const struct {
        FilterMap conditions;
        const char* key;
        int answer;
    } rows[] = {
        {{{"f", {{"(", fits}}}, {"g", {{"a", is}}}}, "p<f>x<g>a", -1},
        {{{"f", {{"(", fits}}}, {"g", {{"a", is}}}}, "p<f>x<g>b", 0},
        {{{"f", {{"(", fits}}}, {"action", {{"a", is}}}}, "p<action>b<f>x", 0},
        {{{"f", {{"(", fits}}}, {"g", {{"a", is}}}}, "p<g>a", 0},  // a field that is absent
        {{{"f", {{"(", fits}}}, {"g", {{"[b]", fits}}}}, "p<f>x<g>a", 0},
        {{{"f", {{"(", fits}}}, {"g", {{"[b]", fits}}}}, "p<f>x<g>b", -1},
        {{{"f", {{"(", fits}, {"x", is}}}}, "p<f>x", 1},
        {{{"f", {{"(", fits}, {"[x]", fits}}}}, "p<f>x", 1},
        {{{"f", {{"(", fits}, {"[x]", fits}}}}, "p<f>y", -1},
        {{{"f", {{"A", not_}, {"[x]", fits}}}}, "p<f>x", 1},
        {{{"f", {{"A", not_}, {"[x]", fits}}}}, "p<f>y", 0},
        {{{"f", {{"(", fits}, {"A", not_}}}}, "p<f>A", -1},
        {{{"f", {{"(", fits}, {"A", not_}}}}, "p<f>x", 1},
    };
    for (const auto& row : rows) {
        QueryFilter filter(row.conditions);
        for (int i = 0; i < 2; ++i)  // also once it is known that a pattern does not compile
            EXPECT_EQ(Answer(filter, row.key), row.answer) << &row - rows;
    }
}

}  // namespace
}  // namespace ZEL
