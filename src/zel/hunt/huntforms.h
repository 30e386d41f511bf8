#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/correlator.h"
#include "hunt/rule.h"
#include "zel/results/resultform.h"

namespace zel {

// How hits look, one after the other. A form keeps none. For one thread.
class HitForm {
public:
    virtual ~HitForm() = default;
    // An event that a rule fits, and why: each with its end.
    virtual std::string Hit(const Rule& rule, const FoundEvent& event,
                            const std::vector<std::string>& why) = 0;
    // Events that a rule of rules has counted.
    virtual std::string Counted(const Rule& rule, const CorrelationHit& hit) = 0;
    // Behind the last.
    virtual std::string End() = 0;
};
// table, csv, json, or ndjson for any other name. The author of a rule stands in each, as its
// licence wants it. `fields` of the choice are unused.
std::unique_ptr<HitForm> MakeHitForm(const FormChoice& choice);

// The column that tells a hit's machine: a fleet's host, or what the event says.
const char* MachineColumn(bool hasHosts);
// What stands in rows of hits counted by rule and machine. A table has no room for the last two,
// the first hit's time and the rule's identifier.
std::vector<Field> SummaryFields(bool isTable, bool hasHosts);

}  // namespace zel
