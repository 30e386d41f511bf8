#pragma once

#include <memory>

#include "agent/parts.h"

namespace zel {

// Takes the events of a request to /v1/events whose body comes in chunks. `parts` outlives it.
std::shared_ptr<BodyTaker> MakeEventTaker(AgentParts& parts, const HttpHead& head);

}  // namespace zel
