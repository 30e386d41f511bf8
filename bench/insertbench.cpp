#include <benchmark/benchmark.h>
#include <cpprest/json.h>

#include <thread>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "fixture.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/eventstoreproxy.h"
#include "zelstore/keymaker.h"

namespace bench {

namespace {

constexpr std::size_t recordCount = 300000;

using ZEL::CountedPtr;
using ZEL::IStringValue;

CountedPtr<IStringValue> Wide(const std::string& utf8) {
    CountedPtr<IStringValue> text;
    if (!wm::CreateStringValue(std::string_view(utf8), text.Receive()))
        std::abort();
    return text;
}

}  // namespace

const std::vector<std::string>& Records() {
    static const std::vector<std::string> records = MakeRecords(recordCount);
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

namespace {

// The JSON library alone: what no way of making keys goes below.
void BM_ParseJson(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(web::json::value::parse(Records()[i++ % recordCount]));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ParseJson);

void BM_MakeKey(benchmark::State& state) {
    std::size_t i = 0;
    ZEL::EventKeyMaker keys;
    for (auto _ : state) {
        std::string key;
        benchmark::DoNotOptimize(keys.Make(Records()[i++ % recordCount], &key));
        benchmark::DoNotOptimize(key);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MakeKey);

// What a producer pays for one record: conversion and queue, no disk. The queue is emptied outside
// of the measured time.
void BM_Insert(benchmark::State& state) {
    ZEL::IncomingQueue queue;
    std::vector<std::pair<CountedPtr<IStringValue>, CountedPtr<IStringValue>>> wide;
    for (std::size_t i = 0; i < 10000; ++i)
        wide.emplace_back(Wide(Rows()[i].first), Wide(Rows()[i].second));
    for (auto _ : state) {
        for (const auto& [key, value] : wide) {
            std::string keyUtf8, valueUtf8;
            bool wake = false;
            wm::ToUtf8({key->GetText(), key->GetLength(0)}, keyUtf8);
            wm::ToUtf8({value->GetText(), value->GetLength(0)}, valueUtf8);
            ZEL::IgnoreResult(
                queue.EnqueueEventData(std::move(keyUtf8), std::move(valueUtf8), &wake),
                "measured");
        }
        state.PauseTiming();
        ZEL::BatchList taken;
        queue.DequeueBatches(taken, ZEL::Flush::everything);
        taken.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(wide.size()));
}
BENCHMARK(BM_Insert);

// The same keys and values straight into LevelDB.
void BM_RawWrite(benchmark::State& state) {
    const std::vector<Row>& rows = Rows();
    for (auto _ : state) {
        state.PauseTiming();
        TempFolder folder("raw");
        state.ResumeTiming();
        const std::unique_ptr<leveldb::DB> db = OpenBare(folder.Path() / "db");
        WriteBare(*db, rows);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(rows.size()));
}
BENCHMARK(BM_RawWrite)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// From JSON text through MakeKey, Insert and the coordinator to the disk, one producer thread. It
// ends the store, whose catalog then stays empty, so it runs behind everything that reads. Each
// round begins in a new folder, as each round of the raw writes does.
void BM_Ingest(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        for (const auto& folder : std::filesystem::directory_iterator(StoreDirectory()))
            if (folder.path() != FilledFolder())
                std::filesystem::remove_all(folder);
        state.ResumeTiming();
        if (!IngestAll())
            state.SkipWithError("the store refused to work");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Records().size()));
}
BENCHMARK(BM_Ingest)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

bool IngestAll() {
    auto store = CountedPtr<ZEL::IEventStore7>(new ZEL::EventStoreProxy());
    if (Failed(store->Initialize()))
        return false;
    for (const std::string& record : Records()) {
        const CountedPtr<IStringValue> text = Wide(record);
        CountedPtr<IStringValue> key;
        if (Failed(store->MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive())))
            return false;
        while (Failed(store->Insert(key.Get(), text.Get())))
            std::this_thread::yield();
    }
    return Succeeded(store->Stop()) && Succeeded(store->Shutdown());
}

}  // namespace bench
