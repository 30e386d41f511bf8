#pragma once

#include "sql/sqliteapi.h"

namespace zel {

// Makes `X REGEXP Y` work: whether the regular expression Y (RE2) fits somewhere in the text X,
// letter case as it stands; (?i) in front makes it not matter. In time proportional to the text.
// A result of SQLite.
int RegisterExpressions(sqlite3* database);

}  // namespace zel
