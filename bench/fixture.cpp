#include "fixture.h"

#include <leveldb/write_batch.h>

#include <cstdio>
#include <cstdlib>

#include "common/jsontext.h"
#include "zelstore/keymaker.h"

namespace bench {

namespace {

std::size_t Told(const char* variable, std::size_t usual) {
    const char* const told = std::getenv(variable);
    return told != nullptr ? std::strtoul(told, nullptr, 10) : usual;
}

// Fewer where each takes long, as under valgrind.
std::size_t RecordCount() {
    return Told("ZEL_BENCH_RECORDS", 300000);
}

constexpr std::size_t batchRecords = 500;
constexpr std::size_t recordsAMillisecond = 50;

std::string ReceiveKey(std::size_t row) {
    char key[96];
    const std::size_t ms = row / recordsAMillisecond;
    std::snprintf(key, sizeof(key),
                  "r<receive_time>2026-03-01T%02zu:%02zu:%02zu.%03zuZ<sequence>%010zu",
                  ms / 3600000 % 24, ms / 60000 % 60, ms / 1000 % 60, ms % 1000,
                  row % recordsAMillisecond + 1);
    return key;
}

}  // namespace

const std::vector<std::string>& Records() {
    static const std::vector<std::string> records = MakeRecords(RecordCount());
    return records;
}

const std::vector<Row>& Rows() {
    static const std::vector<Row> rows = [] {
        std::vector<Row> made;
        ZEL::EventKeyMaker keys;
        for (const std::string& record : Records()) {
            std::string key;
            if (ZEL::Succeeded(keys.Make(record, &key)))
                made.emplace_back(std::move(key), record);
        }
        return made;
    }();
    return rows;
}

const std::vector<Row>& RowsWithReceipt() {
    static const std::vector<Row> rows = [] {
        std::vector<Row> made;
        for (const Row& row : Rows()) {
            made.push_back(row);
            made.emplace_back(ReceiveKey(made.size() / 2), ReceiveValue(row.first));
        }
        return made;
    }();
    return rows;
}

std::string ReceiveValue(std::string_view eventKey) {
    return "{\"event_pkey\":" + wm::JsonString(eventKey) + "}";
}

std::unique_ptr<leveldb::DB> OpenBare(const std::string& path) {
    leveldb::Options options;
    options.create_if_missing = true;
    options.max_open_files = 16;
    options.block_size = Told("ZEL_BENCH_BLOCK_SIZE", options.block_size);
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
