#include "zelstore/query/queryfilter.h"

#include <algorithm>
#include <stdexcept>

#include "common/asciicase.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/folderfacts.h"
#include "zelstore/keys/keyfield.h"

// Testing a row's key.
//
// Within a field, one positive condition that holds is enough, until a negative one comes, in byte
// order of the values: from there on all have to hold, the positive ones too. So the place of the
// first negative one parts the list in two: conditions each of which is enough alone, and
// conditions that have to hold together. The field passes when either part does.
//
// Comparisons are cheap and always have an answer. Matching an expression may be dear, and may be
// given up without one. So a row goes through the comparisons of all fields first; only when they
// leave it open whether the row passes, expressions are matched. One without an answer leaves the
// row's unknown only when nothing else decides it; the row is then lost, and told.

namespace ZEL {

namespace {

// What things cost, in the watch's steps.
constexpr std::uint64_t stepsToMake = 200;
constexpr std::uint64_t stepsToCompare = 5;
constexpr std::uint64_t stepsToCompileByte = 10;

constexpr char Same(char c) noexcept {
    return c;
}

// The comparison of two ranges calls it with either one's byte first, so both are folded.
template <char (*fold)(char)>
constexpr auto foldedLess = [](char a, char b) {
    return static_cast<unsigned char>(fold(a)) < static_cast<unsigned char>(fold(b));
};

// The comparisons, with `fold` applied to the text's bytes; `value` is folded already.
template <char (*fold)(char)>
struct Bytes {
    static bool Equal(std::string_view text, std::string_view value) {
        return text.size() == value.size() && StartsWith(text, value);
    }
    static bool StartsWith(std::string_view text, std::string_view value) {
        return text.size() >= value.size() &&
               std::equal(value.begin(), value.end(), text.begin(),
                          [](char v, char t) { return v == fold(t); });
    }
    static bool EndsWith(std::string_view text, std::string_view value) {
        return text.size() >= value.size() &&
               StartsWith(text.substr(text.size() - value.size()), value);
    }
    static bool Contains(std::string_view text, std::string_view value, EndWatch* watch) {
        constexpr std::uint64_t mostUntold = 4096;
        std::uint64_t steps = 0;
        for (; text.size() >= value.size(); text.remove_prefix(1)) {
            std::size_t same = 0;
            while (same < value.size() && fold(text[same]) == value[same])
                ++same;
            if (same == value.size())
                return true;
            steps += same + 1;
            if (steps > mostUntold)
                Spend(watch, std::exchange(steps, 0));
        }
        Spend(watch, steps);
        return false;
    }
    static bool Less(std::string_view text, std::string_view value) {
        return std::lexicographical_compare(text.begin(), text.end(), value.begin(), value.end(),
                                            foldedLess<fold>);
    }
    static bool Greater(std::string_view text, std::string_view value) {
        return std::lexicographical_compare(value.begin(), value.end(), text.begin(), text.end(),
                                            foldedLess<fold>);
    }
};

template <char (*fold)(char)>
bool Compare(Schema::OperatorType op, std::string_view text, std::string_view value,
             EndWatch* watch) {
    using B = Bytes<fold>;
    // Without a default, so that the compiler tells of an operator that is forgotten here.
    switch (op) {
        case Schema::operatorEquals:
            return B::Equal(text, value);
        case Schema::operatorDoesNotEqual:
            return !B::Equal(text, value);
        case Schema::operatorContains:
            return B::Contains(text, value, watch);
        case Schema::operatorDoesNotContain:
            return !B::Contains(text, value, watch);
        case Schema::operatorStartsWith:
            return B::StartsWith(text, value);
        case Schema::operatorEndsWith:
            return B::EndsWith(text, value);
        case Schema::operatorGreaterThan:
            return B::Greater(text, value);
        case Schema::operatorGreaterThanOrEqual:
            return !B::Less(text, value);
        case Schema::operatorLessThan:
            return B::Less(text, value);
        case Schema::operatorLessThanOrEqual:
            return !B::Greater(text, value);
        case Schema::operatorFitsPattern:  // an expression, which is matched and not compared
        case Schema::operatorUnknown:
            break;
    }
    return false;  // also for a number that is no operator
}

// Of the fields that a key holds, those at its start.
bool StandsEarly(std::string_view name) {
    const auto field = FindKeyField(name);
    return field && RowOf(*field).standsEarly;
}

bool IsNegative(std::int32_t op) noexcept {
    return op == Schema::operatorDoesNotEqual || op == Schema::operatorDoesNotContain;
}

}  // namespace

QueryFilter::QueryFilter(const Schema::FilterMap& conditions, EndWatch* watch) : watch_(watch) {
    for (const auto& [name, values] : conditions)
        fields_.push_back(MakeField(name, values, watch));
    // Keys are split from their end on, as far as fields are asked for: those at the start come
    // last.
    std::stable_partition(fields_.begin(), fields_.end(),
                          [](const Field& field) { return !StandsEarly(field.name); });
}

void QueryFilter::TestEarlyFieldsFirst() {
    std::stable_partition(fields_.begin(), fields_.end(),
                          [](const Field& field) { return StandsEarly(field.name); });
}

QueryFilter::Field QueryFilter::MakeField(const std::string& name,
                                          const std::map<std::string, Schema::Operator>& values,
                                          EndWatch* watch) {
    Field field;
    field.name = name;
    Conditions* part = &field.alone;
    for (const auto& [value, op] : values) {
        Spend(watch, stepsToMake + value.size());
        if (IsNegative(op.op))
            part = &field.together;
        if (op.op == Schema::operatorFitsPattern) {
            part->expressions.push_back({value, op.caseSensitive, std::nullopt, nullptr});
            continue;
        }
        part->comparisons.push_back(
            {static_cast<Schema::OperatorType>(op.op), op.caseSensitive, value});
        if (!op.caseSensitive)
            MakeUpperAscii(part->comparisons.back().value);
    }
    return field;
}

// Only a field whose values are all listed says what a row has to have.
bool QueryFilter::MayMatch(const FolderFacts& facts) const {
    return std::all_of(fields_.begin(), fields_.end(), [&](const Field& field) {
        const auto known = FindKeyField(field.name);
        const auto& values = field.alone.comparisons;
        if (!known || !FolderFacts::IsRemembered(*known) || !field.together.Empty() ||
            !field.alone.expressions.empty())
            return true;
        return std::any_of(values.begin(), values.end(), [&](const Comparison& comparison) {
            return comparison.op != Schema::operatorEquals ||
                   facts.MayHold(*known, comparison.value);
        });
    });
}

bool QueryFilter::MatchesFilter(const KeyFields& keyFields) {
    bool isOpen = false;
    for (Field& field : fields_) {
        // No condition holds for a field that the key has not.
        if (Failed(GetKeyField(keyFields, field.name, &field.text)))
            return false;
        field.answer = TestComparisons(field);
        if (field.answer == Answer::no)
            return false;
        isOpen = isOpen || field.answer == Answer::unknown;
    }
    if (!isOpen)
        return true;
    Answer all = Answer::yes;
    for (Field& field : fields_) {
        if (field.answer == Answer::unknown)
            field.answer = TestExpressions(field);
        if (field.answer == Answer::no)
            return false;
        if (field.answer == Answer::unknown)
            all = Answer::unknown;
    }
    if (all == Answer::unknown)
        std::rethrow_exception(failure_);
    return true;
}

// Unknown when it takes expressions to decide.
QueryFilter::Answer QueryFilter::TestComparisons(Field& field) {
    const auto holds = [&](const Comparison& comparison) { return Holds(comparison, field.text); };
    const auto& alone = field.alone.comparisons;
    const auto& together = field.together.comparisons;
    if (std::any_of(alone.begin(), alone.end(), holds))
        return Answer::yes;
    // Noted for the expressions: where a comparison has failed, they can't save this part.
    field.togetherMayHold =
        !field.together.Empty() && std::all_of(together.begin(), together.end(), holds);
    if (field.togetherMayHold && field.together.expressions.empty())
        return Answer::yes;
    return field.togetherMayHold || !field.alone.expressions.empty() ? Answer::unknown : Answer::no;
}

// Goes on past an expression without an answer: another one may decide.
QueryFilter::Answer QueryFilter::TestExpressions(Field& field) {
    Answer any = Answer::no;
    for (Expression& expression : field.alone.expressions) {
        const Answer answer = Matches(expression, field.text);
        if (answer == Answer::yes)
            return Answer::yes;
        if (answer == Answer::unknown)
            any = Answer::unknown;
    }
    if (!field.togetherMayHold)
        return any;
    Answer all = Answer::yes;
    for (Expression& expression : field.together.expressions) {
        const Answer answer = Matches(expression, field.text);
        if (answer == Answer::no)
            return any;
        if (answer == Answer::unknown)
            all = Answer::unknown;
    }
    return all;
}

bool QueryFilter::Holds(const Comparison& comparison, std::string_view text) {
    Spend(watch_, stepsToCompare + std::min(text.size(), comparison.value.size()));
    return comparison.caseSensitive
               ? Compare<Same>(comparison.op, text, comparison.value, watch_)
               : Compare<ToUpperAscii<char>>(comparison.op, text, comparison.value, watch_);
}

QueryFilter::Answer QueryFilter::Matches(Expression& expression, std::string_view text) {
    try {
        Compile(expression);
        return expression.pattern->Matches(text, watch_) ? Answer::yes : Answer::no;
    } catch (const std::exception&) {
        failure_ = std::current_exception();
        return Answer::unknown;
    }
}

// What does not compile fails each row that reaches it in the same way.
void QueryFilter::Compile(Expression& expression) {
    if (expression.fault)
        std::rethrow_exception(expression.fault);
    if (expression.pattern)
        return;
    Spend(watch_, stepsToCompileByte * expression.text.size());
    try {
        expression.pattern.emplace(expression.text, expression.caseSensitive);
    } catch (const std::runtime_error&) {
        expression.fault = std::current_exception();
        throw;
    }
}

}  // namespace ZEL
