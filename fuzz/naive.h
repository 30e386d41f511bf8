#pragma once

#include <algorithm>
#include <boost/regex.hpp>
#include <map>
#include <string>

// Conditions on a text, tested in the plainest way: nothing is prepared, folded beforehand or
// matched by anything but the general matcher.
namespace ZEL::fuzz {

enum Op {
    unknown,
    equals,
    doesNotEqual,
    contains,
    doesNotContain,
    startsWith,
    endsWith,
    greaterThan,
    greaterThanOrEqual,
    lessThan,
    lessThanOrEqual,
    fitsPattern
};
inline constexpr const char* opNames[] = {"unknown",
                                          "equals",
                                          "does_not_equal",
                                          "contains",
                                          "does_not_contain",
                                          "starts_with",
                                          "ends_with",
                                          "greater_than",
                                          "greater_than_or_equal",
                                          "less_than",
                                          "less_than_or_equal",
                                          "fits_pattern"};

struct Condition {
    int op;
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
        case equals:
            return t == v;
        case doesNotEqual:
            return t != v;
        case contains:
            return t.find(v) != std::string::npos;
        case doesNotContain:
            return t.find(v) == std::string::npos;
        case startsWith:
            return t.compare(0, v.size(), v) == 0;
        case endsWith:
            return t.size() >= v.size() && t.substr(t.size() - v.size()) == v;
        case greaterThan:
            return v < t;
        case greaterThanOrEqual:
            return !(t < v);
        case lessThan:
            return t < v;
        case lessThanOrEqual:
            return !(v < t);
        case fitsPattern:
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
        negative |= condition.op == doesNotEqual || condition.op == doesNotContain;
        const bool held = Holds(text, value, condition);
        if (held && !negative)
            return true;
        passed += held ? 1 : 0;
        failed += !held && negative ? 1 : 0;
    }
    return negative && failed == 0 && passed != 0;
}

}  // namespace ZEL::fuzz
