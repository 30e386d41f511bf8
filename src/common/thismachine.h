#pragma once

#include "common/machinedescription.h"

namespace wm {

// The machine that the process runs on. Lives until the process ends. Each system has one, in a
// folder of its own; for any thread.
IMachineDescription& ThisMachine() noexcept;

// The machine that paths are normalised for: the injected one, else this one. Asked anew at each
// use. Whoever injects one keeps it alive until the process ends: what has read it holds on to it.
IMachineDescription& Machine() noexcept;

}  // namespace wm
