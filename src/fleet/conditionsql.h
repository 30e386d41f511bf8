#pragma once

#include <string>

#include "zelstore/schema/eventfields.h"

namespace zel::fleet {

// The conditions of a sub-query in SQL, all of which have to hold.
struct ConditionsSql {
    std::string sql;  // empty: none
    // Whether it lets through what the conditions do; else more, and never less.
    bool isExact = true;
    // Whether a condition in it leaves few rows: one on a hash, a path, an address, an identifier.
    bool leavesFew = false;
    // What can't be tested of a pattern, with its place; empty when all can.
    std::string refused;
    // Not empty: a pattern that the store does not compile, in words.
    std::string problem;
};
ConditionsSql SqlOfConditions(const ZEL::Schema::FilterMap& conditions);

}  // namespace zel::fleet
