#pragma once

#include "sql/virtualtable.h"

namespace zel {

// The table of events: a row each, with the columns of records/columns.h.
const TableKind& EventsTable();
// The table of enrichments: a row for each that an event has.
const TableKind& EnrichmentsTable();

}  // namespace zel
