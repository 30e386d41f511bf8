#pragma once

#include <span>
#include <string>
#include <vector>

#include "questions/condition.h"

namespace zel {

// What the store can decide by its keys of conditions all of which have to fit: members of a
// sub-query of a query document. Every event that fits the conditions fits the sub-query; of what
// fits the sub-query the conditions still have to be tested on the text.
//
// It holds for keys that the store made of the event's text, and that can be read back: a value
// with `<`, `|` or a NUL in it can change what a key says of other fields, and so can, of several
// addresses, one with `*` or `?`. And for records that name a member once, without a dot in it.
struct Narrowing {
    // In the store's form, both inclusive; empty: no bound.
    std::string since, until;
    // Empty lists and texts ask nothing. Values of one list are alternatives.
    std::vector<std::string> actions;
    std::string object;
    std::string correlation;
    // Of a target of the kind `object`, without which they are empty.
    std::string targetHash;
    struct Starts {
        std::string member;  // src_ip or dst_ip
        std::vector<std::string> values;
    };
    std::vector<Starts> addresses;

    bool Empty() const;
};
Narrowing NarrowingOf(std::span<const EventCondition> conditions);

// The sub-query as JSON: an object to stand in event_query.events. Without a first time it begins
// with the oldest event.
std::string SubQueryOf(const Narrowing& narrowing);

}  // namespace zel
