#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "sql/sqliteapi.h"

namespace zel {

// How the rows of a statement look. One object for one statement; for one thread.
class SqlForm {
public:
    virtual ~SqlForm() = default;
    // What is to be printed for the present row of the statement; perhaps nothing yet.
    virtual std::string Row(sqlite3_stmt* statement) = 0;
    // What is left behind the last one. The statement tells the columns also without a row.
    virtual std::string End(sqlite3_stmt* statement) = 0;
};

// csv, ndjson or table. A table makes its columns as wide as its first rows are, and no wider than
// fits into `columns`; 0: nothing is cut.
std::unique_ptr<SqlForm> MakeSqlForm(const std::string& name, std::size_t columns);

}  // namespace zel
