#pragma once

#include <benchmark/benchmark.h>
#include <leveldb/db.h>

#include <memory>
#include <string>
#include <vector>

#include "fixture.h"
#include "ratios.h"
#include "zelstore/ieventstore.h"

namespace bench {

// The process's store: one folder, filled by LevelDB alone. To be called once, ahead of all others.
void FillStore(const char* name, const std::vector<Row>& rows);
std::string FilledFolder();
std::size_t FilledRows();

// Asks the store, which stays started for all benchmarks. False when that fails.
bool Ask(const wchar_t* document, ZEL::IQueryCallback& callback);
// False too when the query gives another number of rows than expected.
bool Ask(const wchar_t* document, std::size_t expectedRows);
// The document that asks for all events.
extern const wchar_t* const everything;

// Costs are those of all threads of the process.
void AllThreads(benchmark::internal::Benchmark* benchmark);

// What LevelDB alone needs: opening the folder, as a query does, and reading each row.
template <typename Look>
void WalkBare(benchmark::State& state, const Look& look) {
    leveldb::ReadOptions options;
    options.fill_cache = false;
    for (auto _ : state) {
        const std::unique_ptr<leveldb::DB> db = OpenBare(FilledFolder());
        const std::unique_ptr<leveldb::Iterator> it(db->NewIterator(options));
        for (it->SeekToFirst(); it->Valid(); it->Next())
            look(*it);
    }
    SetItems(state, FilledRows());
}
// The same, with each value looked at: what a search of the texts needs at the least.
void WalkBareValues(benchmark::State& state);

}  // namespace bench
