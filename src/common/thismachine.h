#pragma once

#include "common/machinedescription.h"

namespace wm {

// The machine that the process runs on. Lives until the process ends.
IMachineDescription& ThisMachine() noexcept;

// The machine that paths are normalised for: the injected one, else this one.
IMachineDescription& Machine() noexcept;

}  // namespace wm
