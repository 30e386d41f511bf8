#pragma once

#include <leveldb/db.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records.h"

namespace bench {

// The keys and values that the records of a run become, made once and shared by what is compared.
using Row = std::pair<std::string, std::string>;
const std::vector<std::string>& Records();
const std::vector<Row>& Rows();
// The same, each with the row that tells when it came.
const std::vector<Row>& RowsWithReceipt();
// The value of such a row.
std::string ReceiveValue(std::string_view eventKey);

// LevelDB as the store opens it.
std::unique_ptr<leveldb::DB> OpenBare(const std::string& path);

// Writes rows in batches of the size that the store's coordinator uses.
void WriteBare(leveldb::DB& db, const std::vector<Row>& rows);

}  // namespace bench
