#pragma once

#include <memory>

#include "records/formats/formats.h"

namespace zel {

// The results log of osquery: rows one by one, in batches and in snapshots.
bool KnowsOsquery(const SourceLine& line);
std::unique_ptr<LineSource> MakeOsquery(Mapper& mapper);

}  // namespace zel
