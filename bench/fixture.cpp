#include "fixture.h"

#include <leveldb/write_batch.h>

#include <cstdlib>

namespace bench {

namespace {

constexpr std::size_t batchRecords = 500;

}  // namespace

std::unique_ptr<leveldb::DB> OpenBare(const std::string& path) {
    leveldb::Options options;
    options.create_if_missing = true;
    options.max_open_files = 16;
    leveldb::DB* db = nullptr;
    const leveldb::Status status = leveldb::DB::Open(options, path, &db);
    if (!status.ok())
        std::abort();
    return std::unique_ptr<leveldb::DB>(db);
}

void WriteBare(leveldb::DB& db, const std::vector<Row>& rows) {
    leveldb::WriteBatch batch;
    std::size_t inBatch = 0;
    for (const Row& row : rows) {
        batch.Put(row.first, row.second);
        if (++inBatch == batchRecords) {
            db.Write({}, &batch);
            batch.Clear();
            inBatch = 0;
        }
    }
    db.Write({}, &batch);
}

}  // namespace bench
