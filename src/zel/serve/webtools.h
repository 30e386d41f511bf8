#pragma once

#include "agent/web/webparts.h"
#include "zel/commands.h"

namespace zel {

// What the commands of the service bring along for those who ask it: how parameters are read, and
// how events are shown.
WebTools MakeWebTools(ReadParameters readParameters);

}  // namespace zel
