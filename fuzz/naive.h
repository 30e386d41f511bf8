#pragma once

#include <algorithm>
#include <boost/regex.hpp>
#include <map>
#include <string>

#include "zelstore/schema/vocabulary.h"

// Conditions on a text, tested in the plainest way: nothing is prepared, folded beforehand or
// matched by anything but the general matcher.
namespace ZEL::fuzz {

struct Condition {
    std::int32_t op;  // an OperatorType
    bool caseSensitive;
};
using Conditions = std::map<std::string, Condition>;  // by value, in byte order

inline std::string UpperCase(std::string text) {
    for (char& c : text)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return text;
}

// Throws what the matcher throws.
inline bool GeneralMatch(const std::string& text, const std::string& expression,
                         bool caseSensitive) {
    const boost::regex::flag_type syntax =
        caseSensitive ? boost::regex_constants::normal
                      : boost::regex_constants::normal | boost::regex_constants::icase;
    return boost::regex_match(text, boost::regex(expression, syntax),
                              boost::regex_constants::match_any);
}

inline bool Holds(const std::string& text, const std::string& value, const Condition& condition) {
    const std::string t = condition.caseSensitive ? text : UpperCase(text);
    const std::string v = condition.caseSensitive ? value : UpperCase(value);
    switch (condition.op) {
        case Schema::operatorEquals:
            return t == v;
        case Schema::operatorDoesNotEqual:
            return t != v;
        case Schema::operatorContains:
            return t.find(v) != std::string::npos;
        case Schema::operatorDoesNotContain:
            return t.find(v) == std::string::npos;
        case Schema::operatorStartsWith:
            return t.compare(0, v.size(), v) == 0;
        case Schema::operatorEndsWith:
            return t.size() >= v.size() && t.substr(t.size() - v.size()) == v;
        case Schema::operatorGreaterThan:
            return v < t;
        case Schema::operatorGreaterThanOrEqual:
            return !(t < v);
        case Schema::operatorLessThan:
            return t < v;
        case Schema::operatorLessThanOrEqual:
            return !(v < t);
        case Schema::operatorFitsPattern:
            return GeneralMatch(text, value, condition.caseSensitive);
        default:
            return false;
    }
}

constexpr int noExpression = -1;
constexpr int gaveUp = -2;

// 1, 0, or one of these.
template <typename Match>
int Answer(Match&& match) {
    try {
        return match();
    } catch (const boost::regex_error&) {
        return noExpression;
    } catch (const std::exception&) {
        return gaveUp;
    }
}

// Positive conditions combine by OR; from the first negative one on, every condition has to hold.
// An answer as above: without one when a pattern has none and nothing else decides.
inline int Passes(const std::string& text, const Conditions& conditions) {
    bool negative = false;
    int any = 0, all = 1;
    for (const auto& [value, condition] : conditions) {
        negative |= condition.op == Schema::operatorDoesNotEqual ||
                    condition.op == Schema::operatorDoesNotContain;
        const int held = Answer([&, &v = value, &c = condition] { return Holds(text, v, c); });
        if (!negative && any != 1 && held != 0)
            any = held;
        if (negative && all != 0 && held != 1)
            all = held;
    }
    if (any == 1 || (negative && all == 1))
        return 1;
    return any != 0 ? any : negative ? all : 0;
}

}  // namespace ZEL::fuzz
