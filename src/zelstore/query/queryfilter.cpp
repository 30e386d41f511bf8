#include "zelstore/query/queryfilter.h"

#include <algorithm>

#include "common/asciicase.h"
#include "zelstore/keys/keyfield.h"

namespace ZEL {

namespace {

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
    static bool Contains(std::string_view text, std::string_view value) {
        return std::search(text.begin(), text.end(), value.begin(), value.end(),
                           [](char t, char v) { return fold(t) == v; }) != text.end() ||
               value.empty();
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
bool Compare(std::int32_t op, std::string_view text, std::string_view value) {
    using B = Bytes<fold>;
    switch (op) {
        case Schema::operatorEquals:
            return B::Equal(text, value);
        case Schema::operatorDoesNotEqual:
            return !B::Equal(text, value);
        case Schema::operatorContains:
            return B::Contains(text, value);
        case Schema::operatorDoesNotContain:
            return !B::Contains(text, value);
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
        default:
            return false;
    }
}

bool StandsEarly(std::string_view name) {
    const auto field = FindKeyField(name);
    return field && RowOf(*field).standsEarly;
}

}  // namespace

QueryFilter::QueryFilter(const Schema::FilterMap& conditions) {
    for (const auto& [name, values] : conditions) {
        Field field{name, {}};
        for (const auto& [value, op] : values) {
            Condition condition{op.op, op.caseSensitive, value, std::nullopt};
            if (!condition.caseSensitive && condition.op != Schema::operatorFitsPattern)
                std::transform(value.begin(), value.end(), condition.value.begin(),
                               ToUpperAscii<char>);
            field.conditions.push_back(std::move(condition));
        }
        fields_.push_back(std::move(field));
    }
    // Keys are split from their end, so what stands near their start is asked for last. All fields
    // have to pass, so the order decides only what a row costs.
    std::stable_partition(fields_.begin(), fields_.end(),
                          [](const Field& field) { return !StandsEarly(field.name); });
}

bool QueryFilter::MatchesFilter(const KeyFields& keyFields) {
    for (Field& field : fields_) {
        std::string_view text;
        if (Failed(GetKeyField(keyFields, field.name, &text)) ||
            !MatchValue(text, field.conditions))
            return false;
    }
    return true;
}

bool QueryFilter::Test(std::string_view text, Condition& condition) {
    if (condition.op != Schema::operatorFitsPattern)
        return condition.caseSensitive ? Compare<Same>(condition.op, text, condition.value)
                                       : Compare<ToUpperAscii>(condition.op, text, condition.value);
    if (!condition.pattern)
        condition.pattern.emplace(condition.value, condition.caseSensitive);
    return condition.pattern->Matches(text);
}

bool QueryFilter::MatchValue(std::string_view text, std::vector<Condition>& conditions) {
    bool negative = false;
    bool allHeld = true;
    for (Condition& condition : conditions) {
        negative = negative || condition.op == Schema::operatorDoesNotEqual ||
                   condition.op == Schema::operatorDoesNotContain;
        const bool held = Test(text, condition);
        if (held && !negative)
            return true;
        if (negative)
            allHeld = allHeld && held;
    }
    return negative && allHeld;
}

}  // namespace ZEL
