#pragma once

#include "records/mapping.h"

namespace zel {

// What the events of Linux audit logs become. Fields are named by the type of their line and their
// own name (SYSCALL.exe), those of PATH lines also by what the path was to the call
// (PATH.CREATE.name).
extern const MappingTable auditTable;

}  // namespace zel
