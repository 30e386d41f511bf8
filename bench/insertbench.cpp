#include <benchmark/benchmark.h>
#include <cpprest/json.h>

#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/valuetext.h"
#include "fixture.h"
#include "ratios.h"
#include "samplerecords.h"
#include "zelstore/core/incomingqueue.h"
#include "zelstore/eventstoreproxy.h"
#include "zelstore/keymaker.h"

// What it costs to take records in: a key, the queue, and the whole road to the disk, against
// LevelDB alone with the same rows. Once a store has been shut down the process has no catalog any
// more, which ingesting does not need; queries are measured by another program.

namespace bench {

namespace {

using ZEL::CountedPtr;
using ZEL::IStringValue;

// Rows by time of receipt beside those of the events, as `zel ingest` writes them.
enum class ReceiveRows { no, yes };

// Ingests all records through a store of its own, from start to shut-down.
bool IngestAll(ReceiveRows receiveRows) {
    auto store = CountedPtr<ZEL::IEventStore7>(new ZEL::EventStoreProxy());
    if (Failed(store->Initialize()))
        return false;
    // A producer that meets a full queue waits, as `zel ingest` does.
    const auto put = [&](IStringValue* key, IStringValue* value) {
        while (Failed(store->Insert(key, value)))
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    };
    for (const std::string& record : Records()) {
        const CountedPtr<IStringValue> text = wm::ToValue(record);
        CountedPtr<IStringValue> key, receiveKey;
        if (Failed(store->MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive())))
            return false;
        put(key.Get(), text.Get());
        if (receiveRows == ReceiveRows::no)
            continue;
        if (Failed(store->MakeKey(text.Get(), ZEL::keyKindReceive, receiveKey.Receive())))
            return false;
        put(receiveKey.Get(), wm::ToValue(ReceiveValue(wm::ToText(key.Get()))).Get());
    }
    return Succeeded(store->Stop()) && Succeeded(store->Shutdown());
}

// The JSON library alone, with records of real sensors, as is the next one.
void BM_ParseJson(benchmark::State& state) {
    for (auto _ : state)
        for (const std::string& record : SampleRecords())
            benchmark::DoNotOptimize(web::json::value::parse(record));
    SetItems(state, SampleRecords().size());
}
BENCHMARK(BM_ParseJson)->MeasureProcessCPUTime();

void BM_MakeKey(benchmark::State& state) {
    ZEL::EventKeyMaker keys;
    for (auto _ : state) {
        for (const std::string& record : SampleRecords()) {
            std::string key;
            benchmark::DoNotOptimize(keys.Make(record, &key));
            benchmark::DoNotOptimize(key);
        }
    }
    SetItems(state, SampleRecords().size());
}
BENCHMARK(BM_MakeKey)->MeasureProcessCPUTime();
BENCHMARK(BM_MakeKey)->Name("MakeKeyCounted")->Iterations(1);

// What a producer pays for one record that came as UTF-8: copies and queue, no disk. The queue is
// emptied outside of the measured time.
void BM_Insert(benchmark::State& state) {
    ZEL::IncomingQueue queue;
    std::vector<std::pair<CountedPtr<IStringValue>, CountedPtr<IStringValue>>> wide;
    for (std::size_t i = 0; i < 10000; ++i)
        wide.emplace_back(wm::ToValue(Rows()[i].first), wm::ToValue(Rows()[i].second));
    for (auto _ : state) {
        for (const auto& [key, value] : wide) {
            std::string buffer;
            std::string keyUtf8(*wm::Utf8Of(*key, buffer)), valueUtf8(*wm::Utf8Of(*value, buffer));
            bool wake = false;
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
    SetItems(state, wide.size());
}
BENCHMARK(BM_Insert)->MeasureProcessCPUTime();

// A folder of its own for each round; removing it is not measured.
void RawWrite(benchmark::State& state, const std::vector<Row>& rows) {
    for (auto _ : state) {
        state.PauseTiming();
        {
            TempFolder folder("raw");
            state.ResumeTiming();
            {
                const std::unique_ptr<leveldb::DB> db = OpenBare(folder.Path() / "db");
                WriteBare(*db, rows);
            }
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    SetItems(state, Records().size());
}

// The same keys and values straight into LevelDB.
void BM_RawWrite(benchmark::State& state) {
    RawWrite(state, Rows());
}
void BM_RawWriteReceive(benchmark::State& state) {
    RawWrite(state, RowsWithReceipt());
}

// From JSON text through MakeKey, Insert and the coordinator to the disk, one producer thread.
void Ingest(benchmark::State& state, ReceiveRows receiveRows) {
    static const TempFolder folder("store");  // a process keeps to one
    wm::SetPathToken(L"%ZELDataStore%", folder.Path().wstring());
    for (auto _ : state) {
        state.PauseTiming();
        for (const auto& former : std::filesystem::directory_iterator(folder.Path()))
            std::filesystem::remove_all(former);
        state.ResumeTiming();
        if (!IngestAll(receiveRows))
            state.SkipWithError("the store refused to work");
    }
    SetItems(state, Records().size());
}
void BM_Ingest(benchmark::State& state) {
    Ingest(state, ReceiveRows::no);
}
void BM_IngestReceive(benchmark::State& state) {
    Ingest(state, ReceiveRows::yes);
}

void OneRound(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(1)->MeasureProcessCPUTime()->UseRealTime();
}
BENCHMARK(BM_RawWrite)->Apply(OneRound);
BENCHMARK(BM_RawWriteReceive)->Apply(OneRound);
BENCHMARK(BM_Ingest)->Apply(OneRound);
BENCHMARK(BM_IngestReceive)->Apply(OneRound);

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using bench::Cost;
    bench::SampleRecords();  // not in what is measured first
    return bench::Run(
        argc, argv,
        {{"making a key to parsing its JSON", "BM_MakeKey", "BM_ParseJson", Cost::cpu, 0.25},
         {"ingest to raw write", "BM_Ingest", "BM_RawWrite", Cost::wall, 1.25},
         {"ingest to raw write", "BM_Ingest", "BM_RawWrite", Cost::cpu, 1.5},
         {"ingest with receive-time rows to raw write of the same rows", "BM_IngestReceive",
          "BM_RawWriteReceive", Cost::wall, 0},
         {"ingest with receive-time rows to raw write of the same rows", "BM_IngestReceive",
          "BM_RawWriteReceive", Cost::cpu, 1.4}});
}
