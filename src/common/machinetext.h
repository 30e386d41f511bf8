#pragma once

#include <string>

#include "common/machinedescription.h"

namespace wm {

// The machine as a JSON text in the form of docs/machine.md, indented, without an end of line. Of
// the process's variables only those that every Windows machine has are written. False when the
// users can't be read. `*json` is UTF-8 and unchanged on failure. What the machine does not know is
// left out, so that a machine made of it (DescribedMachine) does not know it either. May take as
// long as loading every user's settings does.
bool DescribeMachine(IMachineDescription& machine, std::string* json);

}  // namespace wm
