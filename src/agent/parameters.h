#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/http.h"

// What a request asks beside its path.
namespace zel {

using Parameters = std::vector<std::pair<std::string, std::string>>;

// The query of a target, decoded, in its order.
Parameters ParametersOf(std::string_view query);
// The first value of that name; empty when it is not there.
std::string Parameter(std::string_view query, std::string_view name);
// Takes all values of that name out; the first, or nothing.
std::string TakeParameter(Parameters* parameters, std::string_view name);
// A whole number from 0 to `most`. False for what is none; an empty text leaves `*number`.
bool ReadCount(std::string_view text, std::uint64_t most, std::uint64_t* number);

// A line for the log: who does what. `deed` may hold what was asked, which is cut and made
// printable, and never what came out.
std::string DeedOf(const HttpHead& head, const std::string& deed);

}  // namespace zel
