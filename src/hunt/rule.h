#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "questions/ipaddress.h"

namespace re2 {
class RE2;
}

namespace zel {

// A Sigma rule as it was understood: modifiers are worked in, values that stand for several are
// written out, names of searches are resolved. What could not be understood makes no rule.

// A text in which `*` stands for any run of characters and `?` for one. Letter case does not
// matter, that is, that of ASCII letters, unless the test says so.
struct TextPattern {
    struct Piece {
        enum class Kind : std::uint8_t { text, anyRun, anyOne };
        Kind kind = Kind::text;
        std::string text;  // UTF-8, without escapes; of `text` alone, and never empty there
    };
    // No two texts and no two runs stand side by side. Empty: the empty text.
    std::vector<Piece> pieces;
};

// What is asked of one value of a field.
struct ValueTest {
    enum class Kind : std::uint8_t {
        pattern,     // the whole value
        expression,  // fits somewhere in the value
        network,     // the value is an address of `network`
        less,
        atMost,
        greater,
        atLeast,  // the value is a number, and stands so to `number`
        isThere,  // the event has the field, whatever its value
        isNull,   // the event has no such field, or null
        equalsField,
        startsWithField,
        endsWithField,
        containsField,  // the value to that of `text`
    };
    Kind kind = Kind::pattern;
    bool cased = false;  // letter case matters
    TextPattern pattern;
    std::shared_ptr<const re2::RE2> expression;
    IpNetwork network;
    std::string text;  // the other field; else the value as the rule has it, for people
    double number = 0;
};

// One field of the event and what it may be: one of the values has to fit, of a field with several
// values any of these.
struct FieldTest {
    std::string field;  // empty: any value of the event
    std::vector<ValueTest> values;
    std::string shown;  // "Image|endswith", for people
    int line = 0;       // in the file, from 1
};

// What has to hold of an event.
struct RuleNode {
    enum class Kind : std::uint8_t { all, any, none, field };
    Kind kind = Kind::all;
    std::string name;                // of the search that this is, "selection_img"; empty for parts
    std::vector<RuleNode> children;  // of `field` none, of `none` one; `all` of nothing holds
    FieldTest test;                  // of `field`
};

struct LogSource {
    std::string category, product, service;  // in lower case; empty where the rule names none
};

// What a rule of rules counts, and over what time.
struct Correlation {
    enum class Kind : std::uint8_t { eventCount, valueCount, temporal, temporalOrdered };
    enum class Comparison : std::uint8_t { less, atMost, greater, atLeast, equals, differs };
    struct Bound {
        Comparison comparison = Comparison::atLeast;
        std::uint64_t number = 0;
    };
    // In one group a field may have another name in each rule.
    struct Alias {
        std::string name, rule, field;
    };

    Kind kind = Kind::eventCount;
    std::vector<std::string> rules;  // identifiers, names or titles, as they stand
    std::vector<std::string> groupBy;
    std::vector<Alias> aliases;
    std::chrono::seconds timespan{0};
    std::vector<Bound> bounds;  // all have to hold; of the temporal kinds: none asks for all rules
    std::string countedField;   // of valueCount
    bool generate = false;      // hits of the rules that it counts are hits of their own, too
};

struct Rule {
    std::string file;  // as it was named
    int line = 0;      // where its document begins, from 1
    std::string title, id, name, author, level, status;
    std::vector<std::string> tags;
    LogSource source;
    RuleNode condition;                         // of a rule on events
    std::shared_ptr<const Correlation> counts;  // of a rule of rules, whose condition is unused
};

// Why there is no rule, or what of one is passed over.
struct RuleProblem {
    std::string file;
    int line = 0, column = 0;  // from 1; 0: the whole file
    std::string title;         // of the rule, where it is known
    std::string what;          // "unknown modifier \"foo\""
};

}  // namespace zel
