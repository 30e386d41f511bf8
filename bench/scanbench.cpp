#include <benchmark/benchmark.h>

#include "common/countedptr.h"
#include "common/textbridge.h"
#include "countingcallback.h"
#include "fixture.h"
#include "zelstore/eventstoreproxy.h"

namespace bench {

namespace {

using ZEL::CountedPtr;

// Runs a query until its rows are counted; the store stays started for all benchmarks.
void RunQuery(benchmark::State& state, const wchar_t* document, std::size_t expectedRows) {
    static const CountedPtr<ZEL::IEventStore7> store = [] {
        CountedPtr<ZEL::IEventStore7> made(new ZEL::EventStoreProxy());
        if (Failed(made->Initialize()))
            std::abort();
        return made;
    }();
    wm::EventObject stop;
    stop.Create(wm::EventReset::automatic);
    const auto text = CountedPtr<ZEL::IStringValue>::Adopt(wm::CreateStringValue(document));
    for (auto _ : state) {
        CountingCallback callback;
        if (Failed(store->Query(text.Get(), &callback, stop.Handle())) ||
            callback.rows != expectedRows)
            state.SkipWithError("the query gave other rows than expected");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Rows().size()));
}

// What LevelDB alone needs for it: opening the folder, as a query does, and reading each key.
void BM_BareWalk(benchmark::State& state) {
    leveldb::ReadOptions options;
    options.fill_cache = false;
    std::size_t rows = 0;
    for (auto _ : state) {
        const std::unique_ptr<leveldb::DB> db = OpenBare(FilledFolder());
        const std::unique_ptr<leveldb::Iterator> it(db->NewIterator(options));
        for (it->SeekToFirst(); it->Valid(); it->Next()) {
            benchmark::DoNotOptimize(it->key().size());
            ++rows;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(rows));
}
BENCHMARK(BM_BareWalk)->Unit(benchmark::kMillisecond);

void BM_FullScan(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}})",
             Rows().size());
}
BENCHMARK(BM_FullScan)->Unit(benchmark::kMillisecond);

void BM_PathEndsWith(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"target":{"object_type":"file","path":{"operator":{"value":"ends_with"},"value":["nowhere"]}}}}]}})",
             0);
}
BENCHMARK(BM_PathEndsWith)->Unit(benchmark::kMillisecond);

void BM_HashEquals(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"actor":{"object_type":"process","sha2":{"value":["AB64AF24B1C1CB6B0F8A5C1E6B9B5E2C7F1D4A3B2C1D0E9F8A7B6C5D4E3F2A1B"]}}}}]}})",
             0);
}
BENCHMARK(BM_HashEquals)->Unit(benchmark::kMillisecond);

// Every row has an actor's path, so every row is matched against the pattern.
void BM_PathFitsPattern(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"actor":{"object_type":"process","path":{"operator":{"value":"fits_pattern"},
                     "value":[".*\\\\temp\\\\[a-z]+\\.exe"]}}}}]}})",
             0);
}
BENCHMARK(BM_PathFitsPattern)->Unit(benchmark::kMillisecond);

void BM_PathWildcard(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"actor":{"object_type":"process","path":{"value":["*\\Temp\\*.exe"]}}}}]}})",
             0);
}
BENCHMARK(BM_PathWildcard)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace bench
