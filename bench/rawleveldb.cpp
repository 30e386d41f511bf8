#include <leveldb/db.h>
#include <leveldb/write_batch.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

// LevelDB alone, as a program beside others: stores the lines of a file, and prints those that hold
// a text. Keys are the line's number in front of its first bytes, as long as the store's are on
// average.
//   raw_leveldb FOLDER write FILE
//   raw_leveldb FOLDER read TEXT

namespace {

constexpr std::size_t keyBytes = 377;
constexpr int batchRecords = 500;

std::string KeyOf(std::size_t number, const std::string& line) {
    char digits[32];
    std::snprintf(digits, sizeof(digits), "p%010zu", number);
    return (digits + line).substr(0, keyBytes);
}

int Write(leveldb::DB& db, const char* name) {
    std::ifstream file(name);
    leveldb::WriteBatch batch;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        batch.Put(KeyOf(number, line), line);
        if (number % batchRecords == 0) {
            if (!db.Write({}, &batch).ok())
                return 1;
            batch.Clear();
        }
    }
    return db.Write({}, &batch).ok() ? 0 : 1;
}

int Read(leveldb::DB& db, std::string_view text) {
    std::ios::sync_with_stdio(false);
    leveldb::ReadOptions options;
    options.fill_cache = false;
    const std::unique_ptr<leveldb::Iterator> row(db.NewIterator(options));
    for (row->SeekToFirst(); row->Valid(); row->Next()) {
        const std::string_view value(row->value().data(), row->value().size());
        if (value.find(text) != std::string_view::npos)
            std::cout << value << '\n';
    }
    return row->status().ok() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return 2;
    leveldb::Options options;
    options.create_if_missing = true;
    options.max_open_files = 16;
    leveldb::DB* opened = nullptr;
    if (!leveldb::DB::Open(options, argv[1], &opened).ok())
        return 1;
    const std::unique_ptr<leveldb::DB> db(opened);
    return std::string_view(argv[2]) == "write" ? Write(*db, argv[3]) : Read(*db, argv[3]);
}
