#pragma once

#include <string>

#include "common/machinedescription.h"

namespace wm {

// The machine as a JSON text in the form of docs/machine.md, indented, without an end of line. Of
// the process's variables only those that every Windows machine has are written. False when the
// users can't be read.
bool DescribeMachine(IMachineDescription& machine, std::string* json);

}  // namespace wm
