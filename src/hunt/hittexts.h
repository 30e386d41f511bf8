#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hunt/correlator.h"
#include "hunt/rule.h"

// What is written of a hit, wherever it was found.
namespace zel {

// What an event is enriched with for a rule that fits it:
// {"sigma":{"id":..,"title":..,"level":..}}, without an id where the rule has none.
std::string MarkOf(const Rule& rule);
// How each mark of the rule begins, whatever its level was when it was made. By this it is known
// again, among what was joined to an event.
std::string StartOfMark(const Rule& rule);

// A hit as one JSON object on one line: the rule, the event whole, and why it fits.
std::string HitJson(const Rule& rule, std::string_view event, const std::vector<std::string>& why);
// The same of a rule of rules: what it has counted.
std::string CountedHitJson(const Rule& rule, const CorrelationHit& hit);

}  // namespace zel
