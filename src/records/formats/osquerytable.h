#pragma once

#include "records/mapping.h"
#include "records/sourcefields.h"

namespace zel {

// What the rows of osquery's event tables become. The fields are the columns, and
// `osqueryTableName` for the table that they are of.
extern const MappingTable osqueryTable;
constexpr std::string_view osqueryTableName = "(table)";

// The event table that a row is of: by the name of the query, else by the columns that only this
// table has. Empty for rows of other tables. The fields' scope is that of the columns.
std::string_view OsqueryTableOf(std::string_view query, SourceFields& fields);

}  // namespace zel
