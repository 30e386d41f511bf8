#include <benchmark/benchmark.h>

#include <fstream>

#include "askedstore.h"
#include "benchcallback.h"
#include "common/hostservices.h"
#include "fixture.h"
#include "questions/condition.h"
#include "ratios.h"

// Queries over one folder of many records, against opening the folder and walking its keys with
// LevelDB alone.

namespace bench {

namespace {

void RunQuery(benchmark::State& state, const wchar_t* document, std::size_t expectedRows) {
    for (auto _ : state)
        if (!Ask(document, expectedRows))
            state.SkipWithError("the query gave other rows than expected");
    SetItems(state, Rows().size());
}

void BM_BareWalk(benchmark::State& state) {
    WalkBare(state,
             [](const leveldb::Iterator& row) { benchmark::DoNotOptimize(row.key().size()); });
}
BENCHMARK(BM_BareWalk)->Apply(AllThreads);
BENCHMARK(BM_BareWalk)->Name("BareWalkCounted")->Iterations(1);

void BM_FullScan(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}})",
             Rows().size());
}
BENCHMARK(BM_FullScan)->Apply(AllThreads);
BENCHMARK(BM_FullScan)->Name("FullScanCounted")->Iterations(1);

void BM_BareWalkValues(benchmark::State& state) {
    WalkBareValues(state);
}
BENCHMARK(BM_BareWalkValues)->Apply(AllThreads);

void RunCondition(benchmark::State& state, const char* text) {
    zel::ConditionProblem problem;
    const auto condition = zel::EventCondition::Parse(text, nullptr, &problem);
    zel::EventConditions conditions(std::vector{condition.value()});
    for (auto _ : state) {
        TestingCallback callback([&conditions](std::string_view event) -> std::size_t {
            return conditions.Test(event) == zel::EventConditions::Answer::yes ? 1 : 0;
        });
        if (!Ask(everything, callback) || callback.fitting != 0)
            state.SkipWithError("the query gave other events than expected");
    }
    SetItems(state, Rows().size());
}

void BM_TextNowhere(benchmark::State& state) {
    RunCondition(state, "event contains C:\\nowhere");
}
BENCHMARK(BM_TextNowhere)->Apply(AllThreads);

// Nothing of the value stands in the text by itself, so each event is read for its columns.
void BM_ColumnFitsNowhere(benchmark::State& state) {
    RunCondition(state, "actor_cmd_line ~ no(w)here");
}
BENCHMARK(BM_ColumnFitsNowhere)->Apply(AllThreads);

const wchar_t* const pathNowhere =
    LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
        "artifacts":{"target":{"object_type":"file","path":{"operator":{"value":"ends_with"},"value":["nowhere"]}}}}]}})";

void BM_PathEndsWith(benchmark::State& state) {
    RunQuery(state, pathNowhere, 0);
}
BENCHMARK(BM_PathEndsWith)->Apply(AllThreads);
BENCHMARK(BM_PathEndsWith)->Name("PathEndsWithCounted")->Iterations(1);

// The same, by a walk that learns what the folder holds: a file has changed since the last one.
void BM_PathEndsWithFirst(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        std::ofstream(FilledFolder() + "/LOG", std::ios::app) << "\n";
        state.ResumeTiming();
        if (!Ask(pathNowhere, 0))
            state.SkipWithError("the query gave rows");
    }
    SetItems(state, Rows().size());
}
BENCHMARK(BM_PathEndsWithFirst)->Apply(AllThreads);

// Whole hashes, by another name than equals: what has been learnt of the folder would answer that.
void BM_HashEquals(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"actor":{"object_type":"process","sha2":{"operator":{"value":"starts_with"},"value":["AB64AF24B1C1CB6B0F8A5C1E6B9B5E2C7F1D4A3B2C1D0E9F8A7B6C5D4E3F2A1B"]}}}}]}})",
             0);
}
BENCHMARK(BM_HashEquals)->Apply(AllThreads);

// Every row has an actor's path, so every row is matched against the pattern.
void BM_PathFitsPattern(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"actor":{"object_type":"process","path":{"operator":{"value":"fits_pattern"},
                     "value":[".*\\\\temp\\\\[a-z]+\\.exe"]}}}}]}})",
             0);
}
BENCHMARK(BM_PathFitsPattern)->Apply(AllThreads);

void BM_PathWildcard(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                 "artifacts":{"actor":{"object_type":"process","path":{"value":["*\\Temp\\*.exe"]}}}}]}})",
             0);
}
BENCHMARK(BM_PathWildcard)->Apply(AllThreads);

// A path of a target of any kind is a sub-query for each kind that has a path.
void TargetPath(benchmark::State& state, std::initializer_list<const wchar_t*> kinds) {
    std::wstring document = L"{\"event_query\":{\"events\":[";
    for (const wchar_t* kind : kinds)
        document.append(kind == *kinds.begin() ? L"" : L",")
            .append(
                LR"({"begin_time":{"value":"1601-01-01T00:00:00.000Z"},"artifacts":{"target":{"object_type":")")
            .append(kind)
            .append(LR"(","path":{"operator":{"value":"contains"},"value":["nowhere"]}}}})");
    RunQuery(state, (document + L"]}}").c_str(), 0);
}

void BM_TargetPathOneKind(benchmark::State& state) {
    TargetPath(state, {L"file"});
}
BENCHMARK(BM_TargetPathOneKind)->Apply(AllThreads);

void BM_TargetPathAllKinds(benchmark::State& state) {
    TargetPath(state, {L"file", L"directory", L"process", L"module", L"reg_key", L"reg_value",
                       L"kernel_object", L"service"});
}
BENCHMARK(BM_TargetPathAllKinds)->Apply(AllThreads);

// One event by its time, its kind and its number, out of all.
void BM_Lookup(benchmark::State& state) {
    RunQuery(state,
             LR"({"event_query":{"events":[{"begin_time":{"value":"2026-03-01T00:20:00.003Z"},
                 "end_time":{"value":"2026-03-01T00:20:00.003Z"}}]}})",
             1);
    SetItems(state, 1);
}
BENCHMARK(BM_Lookup)->Apply(AllThreads);

void BM_BareLookup(benchmark::State& state) {
    leveldb::ReadOptions options;
    options.fill_cache = false;
    for (auto _ : state) {
        const std::unique_ptr<leveldb::DB> db = OpenBare(FilledFolder());
        const std::unique_ptr<leveldb::Iterator> it(db->NewIterator(options));
        it->Seek("p<begin_time>2026-03-01T00:20:00.003Z");
        benchmark::DoNotOptimize(it->value().size());
    }
    SetItems(state, 1);
}
BENCHMARK(BM_BareLookup)->Apply(AllThreads);

// Single rows of an open folder, here and there, as enrichments and rows by time of receipt ask for
// them. With ZEL_BENCH_BLOCK_SIZE the blocks of its tables have that size.
void BM_BareGet(benchmark::State& state) {
    constexpr std::size_t lookups = 2000, stride = 7919;
    const std::unique_ptr<leveldb::DB> db = OpenBare(FilledFolder());
    leveldb::ReadOptions options;
    options.fill_cache = false;
    std::string value;
    for (auto _ : state)
        for (std::size_t i = 0; i < lookups; ++i)
            if (!db->Get(options, Rows()[i * stride % Rows().size()].first, &value).ok())
                state.SkipWithError("a row is not there");
    SetItems(state, lookups);
}
BENCHMARK(BM_BareGet)->Apply(AllThreads);

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using bench::Cost;
    bench::FillStore("scan", bench::Rows());
    return bench::Run(
        argc, argv,
        {{"every row delivered to the bare walk", "BM_FullScan", "BM_BareWalk", Cost::cpu, 1.25},
         {"a text that is nowhere to the bare walk with values", "BM_TextNowhere",
          "BM_BareWalkValues", Cost::cpu, 2.0},
         {"a column of each event to the bare walk with values", "BM_ColumnFitsNowhere",
          "BM_BareWalkValues", Cost::cpu, 0},
         {"no match by path ends_with to the bare walk", "BM_PathEndsWith", "BM_BareWalk",
          Cost::cpu, 1.09},
         {"no match by path, and learning, to the bare walk", "BM_PathEndsWithFirst", "BM_BareWalk",
          Cost::cpu, 0},
         {"no match by hash to the bare walk", "BM_HashEquals", "BM_BareWalk", Cost::cpu, 1.09},
         {"no match by expression to the bare walk", "BM_PathFitsPattern", "BM_BareWalk", Cost::cpu,
          1.67},
         {"no match by wildcards to the bare walk", "BM_PathWildcard", "BM_BareWalk", Cost::cpu,
          1.67},
         {"target path of all kinds to one kind", "BM_TargetPathAllKinds", "BM_TargetPathOneKind",
          Cost::cpu, 1.5},
         {"one event of one time to a bare open and seek", "BM_Lookup", "BM_BareLookup", Cost::wall,
          0}});
}
