#include <benchmark/benchmark.h>
#include <leveldb/db.h>

#include <chrono>
#include <cstdio>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "countingcallback.h"
#include "fixture.h"
#include "ratios.h"
#include "zelstore/eventstoreproxy.h"
#include "zelstore/keymaker.h"

// What a query for one hour costs in a store of many days, against opening and seeking the same
// folders with LevelDB alone. A program of its own: the catalog of a process has one store.

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

void FillFolders() {
    const std::vector<std::string> records = MakeRecords(recordsPerFolder);
    for (int day = 0; day < folderCount; ++day) {
        std::vector<Row> rows;
        for (std::size_t i = 0; i < recordsPerFolder; ++i)
            rows.emplace_back(TimeKey(day, i) +
                                  "<sequence>0000000001<object_type>file"
                                  "<action>create",
                              records[i]);
        const std::unique_ptr<leveldb::DB> db = OpenBare(FolderOf(day));
        WriteBare(*db, rows);
        db->CompactRange(nullptr, nullptr);
    }
}

void BM_BareOpenAndSeek(benchmark::State& state) {
    leveldb::ReadOptions options;
    options.fill_cache = false;
    const std::string start = TimeKey(folderCount / 2, 120);
    for (auto _ : state) {
        for (int day = 0; day < folderCount; ++day) {
            const std::unique_ptr<leveldb::DB> db = OpenBare(FolderOf(day));
            const std::unique_ptr<leveldb::Iterator> row(db->NewIterator(options));
            row->Seek(start);
            benchmark::DoNotOptimize(row->Valid());
        }
    }
    SetItems(state, folderCount);
}
BENCHMARK(BM_BareOpenAndSeek)->Iterations(1)->MeasureProcessCPUTime()->UseRealTime();

void BM_NarrowQuery(benchmark::State& state) {
    // Started once: the catalog of a process is empty once its store was shut down.
    static const CountedPtr<ZEL::IEventStore7> store = [] {
        CountedPtr<ZEL::IEventStore7> made(new ZEL::EventStoreProxy());
        if (Failed(made->Initialize()))
            std::abort();
        return made;
    }();
    const std::string date = DateText(folderCount / 2, "%04d-%02u-%02u");
    const std::string document =
        R"({"event_query":{"events":[{"begin_time":{"operator":{"value":"greater_than_or_equal"},"value":")" +
        date +
        R"(T12:00:00.000Z"},"end_time":{"operator":{"value":"less_than_or_equal"},"value":")" +
        date + R"(T12:59:00.000Z"}}]}})";
    const auto text = CountedPtr<ZEL::IStringValue>::Adopt(
        wm::CreateStringValue(std::wstring(document.begin(), document.end()).c_str()));
    wm::EventObject stop;
    stop.Create(wm::EventReset::automatic);
    for (auto _ : state) {
        CountingCallback callback;
        if (Failed(store->Query(text.Get(), &callback, stop.Handle())) || callback.rows != 10)
            state.SkipWithError("the query gave other rows than expected");
    }
    SetItems(state, folderCount);
}
BENCHMARK(BM_NarrowQuery)->Iterations(1)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using bench::Cost;
    wm::SetPathToken(L"%ZELDataStore%", bench::Store().Path().wstring());
    bench::FillFolders();
    return bench::Run(argc, argv,
                      {{"one hour over 500 folders to opening and seeking them", "BM_NarrowQuery",
                        "BM_BareOpenAndSeek", Cost::wall, 0.5},
                       {"one hour over 500 folders to opening and seeking them", "BM_NarrowQuery",
                        "BM_BareOpenAndSeek", Cost::cpu, 0}});
}
