#pragma once

#include "sql/virtualtable.h"

namespace zel {

// The store's folders, as a look at the directory finds them when a statement begins.
const TableKind& FoldersTable();
// What failed to be read since the store was opened.
const TableKind& ErrorsTable();

}  // namespace zel
