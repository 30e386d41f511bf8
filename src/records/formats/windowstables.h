#pragma once

#include <string_view>

#include "records/mapping.h"

namespace zel {

// What the events of Windows' channels become. By the channel's name, whose case does not count;
// for a channel without rows a table without rows.
const MappingTable& WindowsTable(std::string_view channel);

}  // namespace zel
