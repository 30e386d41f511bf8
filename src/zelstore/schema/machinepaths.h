#pragma once

#include "zelstore/schema/keyfields.h"

namespace ZEL::Schema {

// Paths as the process's machine has them. For any thread.
IPathExpander& MachinePaths() noexcept;

}  // namespace ZEL::Schema
