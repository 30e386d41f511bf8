#pragma once

#include "records/mapping.h"

namespace zel {

// What events in the Elastic Common Schema become, by their category, type and action.
extern const MappingTable ecsTable;

}  // namespace zel
