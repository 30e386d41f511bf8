#pragma once

#include <memory>

#include "records/formats/formats.h"

namespace zel {

// Events in the Elastic Common Schema, whoever has sent them: members nested or with dotted names.
bool KnowsEcs(const SourceLine& line);
std::unique_ptr<LineSource> MakeEcs(Mapper& mapper);

}  // namespace zel
