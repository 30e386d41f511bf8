#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zelstore/keys/keysplit.h"
#include "zelstore/query/pattern.h"
#include "zelstore/schema/eventfields.h"

namespace ZEL {

class EndWatch;
class FolderFacts;

// The conditions of one sub-query, made ready for testing row keys. Fields combine by AND; within a
// field positive conditions combine by OR, and from the first negative one on, in byte order of the
// values, every condition must hold. For one thread.
//
// Without conditions every row passes. A field that the row's key has not fails the row, also for a
// negative condition: nothing is known of it that could differ.
class QueryFilter {
public:
    // `watch` may be null; all work is counted there. Throws GivenUp when it says so.
    explicit QueryFilter(const Schema::FilterMap& conditions, EndWatch* watch = nullptr);

    // For keys that other filters test as well: fields at a key's start are then tested first. Each
    // key is split to its start only once, and they are what tells such filters apart.
    void TestEarlyFieldsFirst();
    // False when no primary key of a database of which this is known can pass.
    bool MayMatch(const FolderFacts& facts) const;
    // Whether a primary key passes. Throws what a pattern throws when the answer hangs on that
    // pattern, and GivenUp.
    bool MatchesFilter(const KeyFields& keyFields);

private:
    // Unknown: it hangs on an expression that can't be matched, or was not tried yet.
    enum class Answer { no, yes, unknown };

    // Compares with a value; folded to upper case when case does not matter.
    struct Comparison {
        Schema::OperatorType op;
        bool caseSensitive;
        std::string value;
    };
    // An expression; compiled when a row first reaches it.
    struct Expression {
        std::string text;
        bool caseSensitive;
        std::optional<Pattern> pattern;
        std::exception_ptr fault;  // why it does not compile
    };
    struct Conditions {
        std::vector<Comparison> comparisons;
        std::vector<Expression> expressions;
        bool Empty() const noexcept { return comparisons.empty() && expressions.empty(); }
    };
    // The conditions of one key field, and what the row in hand has said to them so far.
    struct Field {
        std::string name;
        Conditions alone;     // one that holds is enough
        Conditions together;  // all have to hold, unless one of the others does
        // Of the row in hand.
        std::string_view text;
        Answer answer = Answer::unknown;
        bool togetherMayHold = false;
    };

    // Values come in byte order, which says from which one on all have to hold.
    static Field MakeField(const std::string& name, const std::map<std::string, Schema::Operator>&,
                           EndWatch* watch);
    // The cheap half and the dear one of a field's answer. The first also notes what the second
    // needs.
    Answer TestComparisons(Field& field);
    Answer TestExpressions(Field& field);
    bool Holds(const Comparison& comparison, std::string_view text);
    Answer Matches(Expression& expression, std::string_view text);
    // Remembers a failure, since the next row would only meet it again.
    void Compile(Expression& expression);

    EndWatch* const watch_;
    std::vector<Field> fields_;
    std::exception_ptr failure_;  // of an expression, with the row in hand
};

}  // namespace ZEL
