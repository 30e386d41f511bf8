#pragma once

#include "zelstore/schema/eventfields.h"

namespace ZEL {

// Paths as the process's machine has them. For any thread. The one expander of the process: it
// holds nothing, and asks the normalisers of the common library each time. The work is counted at
// the watch of the calling thread's query, and ends with GivenUp when that says so. A path longer
// than any of Windows stands for itself.
Schema::IPathExpander& MachinePaths() noexcept;

}  // namespace ZEL
