#pragma once

#include <leveldb/db.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "records.h"

namespace bench {

// The keys and values that the records of a run become, made once and shared by what is compared.
using Row = std::pair<std::string, std::string>;
const std::vector<std::string>& Records();
const std::vector<Row>& Rows();

// LevelDB as the store opens it.
std::unique_ptr<leveldb::DB> OpenBare(const std::string& path);

// Writes rows in batches of the size that the store's coordinator uses.
void WriteBare(leveldb::DB& db, const std::vector<Row>& rows);

// Ingests all records through a store of its own, from start to shut-down.
bool IngestAll();

// The store's directory in this process, and the one folder in it that holds all records.
const std::filesystem::path& StoreDirectory();
std::string FilledFolder();

}  // namespace bench
