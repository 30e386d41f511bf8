#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/valuetext.h"
#include "ratios.h"
#include "records.h"
#include "records/formats/lineformats.h"
#include "records/input/inputfiles.h"
#include "records/input/linereader.h"
#include "zelstore/eventstoreproxy.h"

// What it costs to take in events of other sources, against taking in the records that they become.
// The events are those of the samples in examples/, over and over; ZEL_SOURCE_SAMPLES may name a
// folder with a larger raw_sample.ndjson.xz.

namespace bench {

namespace {

using ZEL::CountedPtr;
using ZEL::IStringValue;
using namespace zel;

constexpr std::size_t eventCount = 100000;

// The bytes of a file, unpacked.
std::string ReadAll(const std::string& path) {
    std::string whole, error;
    InputFiles files([](int) { return true; });
    const auto take = [&](const std::string&, ByteStream& bytes) {
        char buffer[65536];
        for (long got = 0; (got = bytes.Read(buffer, sizeof(buffer), &error)) > 0;)
            whole.append(buffer, static_cast<std::size_t>(got));
        return true;
    };
    if (files.Read(path, take, &error) != InputEnd::all || !error.empty()) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
        std::exit(1);
    }
    return whole;
}

// As many lines of the sample as there are to be events.
const std::vector<std::string>& Lines() {
    static const std::vector<std::string> lines = [] {
        const char* const folder = std::getenv("ZEL_SOURCE_SAMPLES");
        const std::string text =
            ReadAll(folder != nullptr ? std::string(folder) + "/raw_sample.ndjson.xz"
                                      : ZEL_EXAMPLES "/raw.ndjson.xz");
        std::vector<std::string> made;
        for (std::size_t at = 0; made.size() < eventCount;) {
            const std::size_t end = text.find('\n', at);
            made.push_back(text.substr(at, end - at));
            at = end + 1 < text.size() ? end + 1 : 0;
        }
        return made;
    }();
    return lines;
}

const std::string& Log() {
    static const std::string log = ReadAll(ZEL_EXAMPLES "/security.evtx.xz");
    return log;
}

// Calls `use` with the record of each line that becomes one.
template <typename Use>
void MapLines(Use use) {
    Mapper mapper({});
    LineFormats formats(mapper);
    SourceItem item;
    std::uint64_t number = 0;
    for (const std::string& line : Lines()) {
        if (!formats.Give(line, ++number))
            continue;
        while (formats.Next(&item))
            if (item.fate == EventFate::record)
                use(item.record);
    }
}

class LogBytes final : public ByteStream {
public:
    long Read(char* buffer, std::size_t size, std::string*) override {
        const std::size_t count = std::min(size, Log().size() - at_);
        std::copy_n(Log().begin() + static_cast<long>(at_), count, buffer);
        at_ += count;
        return static_cast<long>(count);
    }

private:
    std::size_t at_ = 0;
};

// The same of the events of a log, of which all become records; gives their number.
template <typename Use>
std::size_t MapLog(Use use) {
    MappingOptions options;
    options.keepsAll = true;
    std::size_t count = 0;
    SourceItem item;
    while (count < eventCount) {
        Mapper mapper(options);
        LogBytes bytes;
        const auto source = FindFormat("evtx")->makeFileReader(bytes, mapper);
        for (; source->Next(&item); ++count)
            use(item.record);
    }
    return count;
}

// A store that is empty, and what is given to it.
class Store {
public:
    bool Open() {
        static const TempFolder folder("sources");  // a process keeps to one
        wm::SetPathToken(L"%ZELDataStore%", folder.Path().wstring());
        for (const auto& former : std::filesystem::directory_iterator(folder.Path()))
            std::filesystem::remove_all(former);
        return Succeeded(store_->Initialize());
    }
    void Put(const std::string& record) {
        const CountedPtr<IStringValue> text = wm::ToValue(record);
        CountedPtr<IStringValue> key;
        if (Failed(store_->MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive())))
            return;
        while (Failed(store_->Insert(key.Get(), text.Get())))
            std::this_thread::yield();
    }
    bool Close() { return Succeeded(store_->Stop()) && Succeeded(store_->Shutdown()); }

private:
    const CountedPtr<ZEL::IEventStore7> store_{new ZEL::EventStoreProxy()};
};

template <typename PutAll>
void IntoStore(benchmark::State& state, std::size_t items, PutAll putAll) {
    for (auto _ : state) {
        Store store;
        if (!store.Open())
            state.SkipWithError("the store refused to work");
        putAll(store);
        if (!store.Close())
            state.SkipWithError("the store refused to end");
    }
    SetItems(state, items);
}

void BM_MapLines(benchmark::State& state) {
    for (auto _ : state)
        MapLines([](const std::string& record) { benchmark::DoNotOptimize(record.data()); });
    SetItems(state, Lines().size());
}

void BM_MapLog(benchmark::State& state) {
    std::size_t count = 0;
    for (auto _ : state)
        count = MapLog([](const std::string& record) { benchmark::DoNotOptimize(record.data()); });
    SetItems(state, count);
}

void BM_IngestLines(benchmark::State& state) {
    IntoStore(state, Lines().size(), [](Store& store) {
        MapLines([&](const std::string& record) { store.Put(record); });
    });
}

void BM_IngestLog(benchmark::State& state) {
    const std::size_t count = MapLog([](const std::string&) {});
    IntoStore(state, count,
              [](Store& store) { MapLog([&](const std::string& record) { store.Put(record); }); });
}

// The records that the lines become, made ahead.
void BM_IngestRecords(benchmark::State& state) {
    static const std::vector<std::string> records = [] {
        std::vector<std::string> made;
        MapLines([&](const std::string& record) { made.push_back(record); });
        return made;
    }();
    IntoStore(state, records.size(), [](Store& store) {
        for (const std::string& record : records)
            store.Put(record);
    });
}

void OneRound(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(1)->MeasureProcessCPUTime()->UseRealTime();
}
BENCHMARK(BM_MapLines)->Apply(OneRound);
BENCHMARK(BM_MapLog)->Apply(OneRound);
BENCHMARK(BM_IngestRecords)->Apply(OneRound);
BENCHMARK(BM_IngestLines)->Apply(OneRound);
BENCHMARK(BM_IngestLog)->Apply(OneRound);

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using bench::Cost;
    return bench::Run(argc, argv,
                      {{"source event into the store to its record", "BM_IngestLines",
                        "BM_IngestRecords", Cost::wall, 1.67},
                       {"source event into the store to its record", "BM_IngestLines",
                        "BM_IngestRecords", Cost::cpu, 0},
                       {"event of a log into the store to a source event", "BM_IngestLog",
                        "BM_IngestLines", Cost::wall, 3}});
}
