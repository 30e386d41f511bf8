#pragma once

#include <string>
#include <string_view>

#include "common/result.h"
#include "zel/ingest/lineproblems.h"

// The store takes records as they are. These are the looks that a person who hands them in would
// want somebody to take: the store says little of what it refuses, and would misplace what they
// find.
namespace zel {

// Why the store has made no key of a line, and so takes no record from it. To be called right after
// that, on the same thread. `line` is UTF-8. The kind is never empty. Costs a second reading of the
// line, so it is for bad ones alone.
LineProblem WhyNoKey(ZEL::HRESULT result, const std::string& line);

// Why a record with this key could not be found by its time; an empty kind when it can. The store
// compares times as text, so only the one form works: 2026-11-12T10:00:00.000Z, from 1601 on. Cheap
// enough for each record.
LineProblem WhyBadTime(std::string_view key);

}  // namespace zel
