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

// Positive conditions combine by OR; from the first negative one on, every condition has to hold.
inline bool Passes(const std::string& text, const Conditions& conditions) {
    bool negative = false;
    int passed = 0, failed = 0;
    for (const auto& [value, condition] : conditions) {
        negative |= condition.op == Schema::operatorDoesNotEqual ||
                    condition.op == Schema::operatorDoesNotContain;
        const bool held = Holds(text, value, condition);
        if (held && !negative)
            return true;
        passed += held ? 1 : 0;
        failed += !held && negative ? 1 : 0;
    }
    return negative && failed == 0 && passed != 0;
}

}  // namespace ZEL::fuzz
