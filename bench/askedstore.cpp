#include "askedstore.h"

#include "benchcallback.h"
#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "common/valuetext.h"
#include "zelstore/eventstoreproxy.h"

namespace bench {

namespace {

using ZEL::CountedPtr;

std::unique_ptr<TempFolder> folder;
std::size_t filledRows = 0;

}  // namespace

const wchar_t* const everything =
    LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}})";

void FillStore(const char* name, const std::vector<Row>& rows) {
    folder = std::make_unique<TempFolder>(name);
    filledRows = rows.size();
    wm::SetPathToken(L"%ZELDataStore%", folder->Path().wstring());
    const std::unique_ptr<leveldb::DB> db = OpenBare(FilledFolder());
    WriteBare(*db, rows);
    db->CompactRange(nullptr, nullptr);
}

std::string FilledFolder() {
    return folder->Path() / "20260301";
}

std::size_t FilledRows() {
    return filledRows;
}

bool Ask(const wchar_t* document, ZEL::IQueryCallback& callback) {
    static const CountedPtr<ZEL::IEventStore7> store = [] {
        CountedPtr<ZEL::IEventStore7> made(new ZEL::EventStoreProxy());
        if (Failed(made->Initialize()))
            std::abort();
        return made;
    }();
    wm::EventObject stop;
    stop.Create(wm::EventReset::automatic);
    const auto text = CountedPtr<ZEL::IStringValue>::Adopt(wm::CreateStringValue(document));
    return Succeeded(store->Query(text.Get(), &callback, stop.Handle()));
}

bool Ask(const wchar_t* document, std::size_t expectedRows) {
    CountingCallback callback;
    return Ask(document, callback) && callback.rows == expectedRows;
}

void AllThreads(benchmark::internal::Benchmark* benchmark) {
    benchmark->MeasureProcessCPUTime()->UseRealTime();
}

void WalkBareValues(benchmark::State& state) {
    WalkBare(state, [](const leveldb::Iterator& row) {
        benchmark::DoNotOptimize(row.value().data()[row.value().size() / 2]);
    });
}

}  // namespace bench
