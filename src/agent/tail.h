#pragma once

#include <memory>
#include <string>

#include "agent/ways.h"

namespace zel {

// The lines of a file that grows, and of those that come after it under its name. How far they were
// read is kept with the records, so that a service that was killed goes on where it was.
std::unique_ptr<WayIn> MakeTail(AgentParts& parts, std::string path);

}  // namespace zel
