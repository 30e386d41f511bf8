#pragma once

#include "zelstore/schema/eventfields.h"

namespace ZEL {

// Paths as the process's machine has them. For any thread.
Schema::IPathExpander& MachinePaths() noexcept;

}  // namespace ZEL
