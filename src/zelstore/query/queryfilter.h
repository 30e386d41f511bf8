#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zelstore/keys/keysplit.h"
#include "zelstore/query/pattern.h"
#include "zelstore/schema/eventfields.h"

namespace ZEL {

// The conditions of one sub-query, made ready for testing row keys. Fields combine by AND; within a
// field positive conditions combine by OR, and from the first negative one on, in byte order of the
// values, every condition must hold. For one thread. Patterns are compiled when a row first reaches
// them and then kept; one that does not compile throws boost::regex_error for each such row.
class QueryFilter {
public:
    explicit QueryFilter(const Schema::FilterMap& conditions);

    bool Empty() const noexcept { return fields_.empty(); }
    // Whether a primary key passes. Throws what a pattern throws.
    bool MatchesFilter(const KeyFields& keyFields);

private:
    struct Condition {
        std::int32_t op;
        bool caseSensitive;
        std::string value;
        std::optional<Pattern> pattern;
    };
    struct Field {
        std::string name;
        std::vector<Condition> conditions;
    };

    static bool Test(std::string_view text, Condition& condition);
    static bool MatchValue(std::string_view text, std::vector<Condition>& conditions);

    std::vector<Field> fields_;
};

}  // namespace ZEL
