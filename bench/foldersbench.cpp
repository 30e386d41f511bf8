#include <benchmark/benchmark.h>
#include <leveldb/db.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "benchcallback.h"
#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/valuetext.h"
#include "fixture.h"
#include "ratios.h"
#include "zelstore/eventstoreproxy.h"
#include "zelstore/keymaker.h"

// What questions cost in a store of many days, against opening, seeking and walking the same
// folders with LevelDB alone: the first time, and again when earlier walks have taught the process
// what the folders hold. A program of its own: the catalog of a process has one store.

namespace bench {

namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;
using ZEL::CountedPtr;

constexpr int folderCount = 500;
constexpr std::size_t recordsPerFolder = 240;  // one in six minutes
constexpr auto firstDay = sys_days(std::chrono::year(2024) / 11 / 1);

std::string DateText(int day, const char* format) {
    const year_month_day date(firstDay + std::chrono::days(day));
    char text[16];
    std::snprintf(text, sizeof(text), format, static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text;
}

TempFolder& Store() {
    static TempFolder folder("folders");
    return folder;
}

std::string FolderOf(int day) {
    return Store().Path() / DateText(day, "%04d%02u%02u");
}

std::string TimeKey(int day, std::size_t record) {
    char time[48];
    std::snprintf(time, sizeof(time), "T%02zu:%02zu:00.000Z", record / 10, record % 10 * 6);
    return "p<begin_time>" + DateText(day, "%04d-%02u-%02u") + time;
}

// The hash that one record of the day in the middle has, and the one of all others.
const std::string rareHash(64, 'A'), commonHash(64, 'B');

void FillFolders() {
    const std::vector<std::string> records = MakeRecords(recordsPerFolder);
    for (int day = 0; day < folderCount; ++day) {
        std::vector<Row> rows;
        for (std::size_t i = 0; i < recordsPerFolder; ++i) {
            const bool isRare = day == folderCount / 2 && i == 7;
            rows.emplace_back(TimeKey(day, i) +
                                  "<sequence>0000000001<object_type>file<action>create"
                                  "<actor_hash>" +
                                  (isRare ? rareHash : commonHash) +
                                  "<actor_path_name>C:\\Windows\\System32\\svchost.exe<actor_uid>" +
                                  std::to_string(i),
                              records[i]);
        }
        const std::unique_ptr<leveldb::DB> db = OpenBare(FolderOf(day));
        WriteBare(*db, rows);
        db->CompactRange(nullptr, nullptr);
    }
}

// Opens each folder and reads on from a key, as far as `mostRows` go.
void BareRead(benchmark::State& state, const std::string& start, std::size_t mostRows) {
    leveldb::ReadOptions options;
    options.fill_cache = false;
    for (auto _ : state) {
        for (int day = 0; day < folderCount; ++day) {
            const std::unique_ptr<leveldb::DB> db = OpenBare(FolderOf(day));
            const std::unique_ptr<leveldb::Iterator> row(db->NewIterator(options));
            std::size_t rows = 0;
            for (row->Seek(start); row->Valid() && rows < mostRows; row->Next(), ++rows)
                benchmark::DoNotOptimize(row->key().size());
        }
    }
    SetItems(state, folderCount);
}
void BM_BareOpenAndSeek(benchmark::State& state) {
    BareRead(state, TimeKey(folderCount / 2, 120), 1);
}
void BM_BareWalk(benchmark::State& state) {
    BareRead(state, "p", recordsPerFolder);
}

enum class Use { writing, reading };

CountedPtr<ZEL::IEventStore7> StartStore(Use use) {
    CountedPtr<ZEL::IEventStore7> made(new ZEL::EventStoreProxy());
    CountedPtr<ZEL::IReadOnlyStore> reader;
    const ZEL::HRESULT result =
        use == Use::writing ? made->Initialize()
        : Failed(made->QueryInterface(ZEL::iidReadOnlyStore, reader.ReceiveVoid()))
            ? ZEL::hr::fail
            : reader->InitializeForReading();
    if (Failed(result))
        std::abort();
    return made;
}

// Runs a query; false when it gives another number of rows than expected.
bool Ask(const std::string& subQuery, std::size_t expectedRows, Use use = Use::writing) {
    // Started once: the catalog of a process is empty once its store was shut down.
    static const CountedPtr<ZEL::IEventStore7> store = StartStore(use);
    const auto text = wm::ToValue(R"({"event_query":{"events":[{"begin_time":{"operator":{"value":)"
                                  R"("greater_than_or_equal"},"value":")" +
                                  subQuery + "}]}}");
    wm::EventObject stop;
    stop.Create(wm::EventReset::automatic);
    CountingCallback callback;
    return Succeeded(store->Query(text.Get(), &callback, stop.Handle())) &&
           callback.rows == expectedRows;
}

std::string OneHour() {
    const std::string date = DateText(folderCount / 2, "%04d-%02u-%02u");
    return date +
           R"(T12:00:00.000Z"},"end_time":{"operator":{"value":"less_than_or_equal"},"value":")" +
           date + R"(T12:59:00.000Z"})";
}

std::string WithHash(const std::string& hash) {
    return R"(1601-01-01T00:00:00.000Z"},"artifacts":{"actor":{"object_type":"process","sha2":{"value":[")" +
           hash + "\"]}}}";
}

// A file that has changed makes the process forget what it knows of a folder.
void Forget() {
    for (int day = 0; day < folderCount; ++day)
        std::ofstream(FolderOf(day) + "/LOG", std::ios::app) << "\n";
}

enum class Time { first, again };

void Query(benchmark::State& state, Time time, const std::string& subQuery, std::size_t rows) {
    for (auto _ : state) {
        state.PauseTiming();
        const bool isReady = time == Time::first ? (Forget(), true) : Ask(WithHash(rareHash), 1);
        state.ResumeTiming();
        if (!isReady || !Ask(subQuery, rows))
            state.SkipWithError("the query gave other rows than expected");
    }
    SetItems(state, folderCount);
}
void BM_HourFirst(benchmark::State& state) {
    Query(state, Time::first, OneHour(), 10);
}
void BM_HourAgain(benchmark::State& state) {
    Query(state, Time::again, OneHour(), 10);
}
void BM_RareHashFirst(benchmark::State& state) {
    Query(state, Time::first, WithHash(rareHash), 1);
}
void BM_RareHashAgain(benchmark::State& state) {
    Query(state, Time::again, WithHash(rareHash), 1);
}
void BM_NoMatchFirst(benchmark::State& state) {
    Query(state, Time::first, WithHash(std::string(64, 'D')), 0);
}
void BM_NoMatchAgain(benchmark::State& state) {
    Query(state, Time::again, WithHash(std::string(64, 'D')), 0);
}

// A process opens its store for one use alone, so each is asked in one of its own. It tells how
// long the question took, without the program's start.
constexpr const char* askFlag = "--ask";

int AskAndTell(Use use) {
    const auto began = std::chrono::steady_clock::now();
    const bool isAnswered = Ask(WithHash(std::string(64, 'D')), 0, use);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    std::printf("%.9f\n", took.count());
    std::fflush(stdout);
    std::_Exit(isAnswered ? 0 : 1);
}

void AskElsewhere(benchmark::State& state, const char* use) {
    const std::string command = "/proc/" + std::to_string(::getpid()) + "/exe " + askFlag + " " +
                                use + " " + Store().Path().string();
    for (auto _ : state) {
        double seconds = 0;
        FILE* const answer = ::popen(command.c_str(), "r");
        const bool isTold = answer != nullptr && std::fscanf(answer, "%lf", &seconds) == 1;
        if (answer == nullptr || ::pclose(answer) != 0 || !isTold)
            state.SkipWithError("the other process has no answer");
        state.SetIterationTime(seconds);
    }
    SetItems(state, folderCount);
}
void BM_WalkForWriting(benchmark::State& state) {
    AskElsewhere(state, "writing");
}
void BM_WalkForReading(benchmark::State& state) {
    AskElsewhere(state, "reading");
}

// The program as a person runs it, from its start to its end; it lies beside this one.
void RunZel(benchmark::State& state, const std::string& question, int end) {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string command = (folder / "zel").string() + " --store " + Store().Path().string() +
                                " query " + question + " >/dev/null 2>&1";
    for (auto _ : state) {
        const auto began = std::chrono::steady_clock::now();
        const int ended = std::system(command.c_str());
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
        if (!WIFEXITED(ended) || WEXITSTATUS(ended) != end)
            state.SkipWithError("zel did not end as expected");
        state.SetIterationTime(took.count());
    }
    SetItems(state, folderCount);
}
void BM_LastTwenty(benchmark::State& state) {
    RunZel(state, "-n 20", 0);
}
void BM_LastOfRare(benchmark::State& state) {
    RunZel(state, "-n 20 --hash " + rareHash, 0);
}
void BM_WalkOfNothing(benchmark::State& state) {
    RunZel(state, "--action decrypt", 1);
}
void BM_WalkOfAll(benchmark::State& state) {
    RunZel(state, "-o ndjson", 0);
}
void BM_SortOfAll(benchmark::State& state) {
    RunZel(state, "-o ndjson --sort", 0);
}

void OneRound(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(1)->MeasureProcessCPUTime()->UseRealTime();
}
BENCHMARK(BM_BareOpenAndSeek)->Apply(OneRound);
BENCHMARK(BM_BareWalk)->Apply(OneRound);
BENCHMARK(BM_HourFirst)->Apply(OneRound);
BENCHMARK(BM_HourAgain)->Apply(OneRound);
BENCHMARK(BM_RareHashFirst)->Apply(OneRound);
BENCHMARK(BM_RareHashAgain)->Apply(OneRound);
BENCHMARK(BM_NoMatchFirst)->Apply(OneRound);
BENCHMARK(BM_NoMatchAgain)->Apply(OneRound);
BENCHMARK(BM_WalkForWriting)->Iterations(1)->UseManualTime();
BENCHMARK(BM_WalkForReading)->Iterations(1)->UseManualTime();
BENCHMARK(BM_LastTwenty)->Iterations(1)->UseManualTime();
BENCHMARK(BM_LastOfRare)->Iterations(1)->UseManualTime();
BENCHMARK(BM_WalkOfNothing)->Iterations(1)->UseManualTime();
BENCHMARK(BM_WalkOfAll)->Iterations(1)->UseManualTime();
BENCHMARK(BM_SortOfAll)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using bench::Cost;
    if (argc == 4 && std::string_view(argv[1]) == bench::askFlag) {
        wm::SetPathToken(L"%ZELDataStore%", std::filesystem::path(argv[3]).wstring());
        return bench::AskAndTell(std::string_view(argv[2]) == "reading" ? bench::Use::reading
                                                                        : bench::Use::writing);
    }
    wm::SetPathToken(L"%ZELDataStore%", bench::Store().Path().wstring());
    bench::FillFolders();
    return bench::Run(
        argc, argv,
        {{"one hour, first time, to opening and seeking all", "BM_HourFirst", "BM_BareOpenAndSeek",
          Cost::wall, 0.5},
         {"one hour, first time, to opening and seeking all", "BM_HourFirst", "BM_BareOpenAndSeek",
          Cost::cpu, 0},
         {"one hour, again, to opening and seeking all", "BM_HourAgain", "BM_BareOpenAndSeek",
          Cost::cpu, 0.02},
         {"a rare hash, first time, to a bare walk", "BM_RareHashFirst", "BM_BareWalk", Cost::cpu,
          0},
         {"a rare hash, again, to a bare walk", "BM_RareHashAgain", "BM_BareWalk", Cost::cpu, 0.08},
         {"a hash that is nowhere, first time, to a bare walk", "BM_NoMatchFirst", "BM_BareWalk",
          Cost::cpu, 0},
         {"a hash that is nowhere, again, to a bare walk", "BM_NoMatchAgain", "BM_BareWalk",
          Cost::cpu, 0},
         {"all, opened for reading alone, to opened for writing", "BM_WalkForReading",
          "BM_WalkForWriting", Cost::wall, 1.1},
         {"zel query -n 20, to a walk without a match", "BM_LastTwenty", "BM_WalkOfNothing",
          Cost::wall, 1.2},
         {"zel query -n 20 of one event, to a walk without a match", "BM_LastOfRare",
          "BM_WalkOfNothing", Cost::wall, 0},
         {"zel query --sort, to zel query, all events", "BM_SortOfAll", "BM_WalkOfAll", Cost::wall,
          0}});
}
