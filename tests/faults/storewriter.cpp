// A host that writes numbered records, for drivers that kill it, break its disk and read the store
// behind it:
//
//   storewriter DIRECTORY FIRST COUNT PER_DAY MOST_BYTES
//
// The record's number gives its time, and the clock moves along, so that the store gets folders of
// several days. Each record has a receive-time row and carries a checksum of its own text; each
// seventh has a silent enrichment. What the program prints, a line each:
//
//   acked N                            all records below N were read back
//   told FOLDER OPERATION COUNT CODE   an entry of the table of errors
//   damaged data                       a report of it
//
// Ends with 0 when the store says that all is written, else with 4.

#include <zlib.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "common/countedptr.h"
#include "common/eventobject.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zelstore/ieventstore.h"

namespace {

using ZEL::CountedPtr;
using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

constexpr unsigned enrichedEach = 7;

CountedPtr<IStringValue> Value(const std::string& text) {
    std::wstring wide;
    return wm::ToWide(text, wide)
               ? CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(wide.c_str()))
               : nullptr;
}

std::string Utf8(IStringValue* value) {
    return value != nullptr ? wm::ToUtf8Lossy({value->GetText(), value->GetLength(0)}) : "";
}

// For a JSON string; the paths in keys have backslashes.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text)
        escaped.append(c == '\\' ? 1 : 0, '\\').push_back(c);
    return escaped;
}

std::string EnrichmentOf(unsigned number) {
    return "{\"of\":" + std::to_string(number) + "}";
}

// The time of the record that is being written.
class RecordClock final : public wm::IClock {
public:
    explicit RecordClock(unsigned perDay) : perDay_(perDay) { wm::SetClock(this); }

    void SetRecord(unsigned number) { number_ = number; }
    std::string TimeOf(unsigned number) const {
        const wm::SystemTime time = SystemTimeOf(number);
        char text[48];
        std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", time.year,
                      time.month, time.day, time.hour, time.minute, time.second, time.milliseconds);
        return text;
    }
    wm::SystemTime UtcNow() noexcept override { return SystemTimeOf(number_); }
    std::uint64_t TickCount64() noexcept override { return 0; }

private:
    // Of one day, a millisecond each.
    wm::SystemTime SystemTimeOf(unsigned number) const noexcept {
        using namespace std::chrono;
        const year_month_day date(sys_days(year(2020) / 1 / 1) + days(number / perDay_));
        const auto narrow = [](unsigned value) { return static_cast<std::uint16_t>(value); };
        const unsigned at = number % perDay_;
        return {narrow(static_cast<unsigned>(static_cast<int>(date.year()))),
                narrow(static_cast<unsigned>(date.month())),
                0,
                narrow(static_cast<unsigned>(date.day())),
                narrow(at / 3600000),
                narrow(at / 60000 % 60),
                narrow(at / 1000 % 60),
                narrow(at % 1000)};
    }

    const unsigned perDay_;
    std::atomic<unsigned> number_{0};  // of the record that is being written
};

// Moves `acked` over the records that a query gives, with their enrichments.
class ReadBack final : public ZEL::IQueryCallback {
public:
    explicit ReadBack(unsigned& acked) : acked_(acked) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID&, void**) override {
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                           IStringValue*, std::int32_t) override {
        for (std::size_t i = 0; !isFinal && i < results->Count(); ++i) {
            const std::string text = Utf8(results->GetValue(i));
            const bool isNext =
                text.find("\"seq_num\":" + std::to_string(acked_) + ",") != text.npos;
            const bool isWhole = acked_ % enrichedEach != 0 ||
                                 text.find("[" + EnrichmentOf(acked_) + "]") != text.npos;
            acked_ += isNext && isWhole ? 1 : 0;
        }
        return hr::ok;
    }

private:
    unsigned& acked_;
};

void Print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

class DamageReports final : public wm::IErrorReportSink {
public:
    void OnReport(const wm::ErrorReport& report) override {
        if (report.Label() == wm::reportLabel::damagedData)
            Print(report.Label());
    }
};

class Writer {
public:
    Writer(ZEL::IEventStore7& store, RecordClock& clock, unsigned first, unsigned mostBytes)
        : store_(store), clock_(clock), random_(first), mostBytes_(mostBytes), acked_(first) {}

    bool Write(unsigned number) {
        clock_.SetRecord(number);
        const auto text = Value(Record(number));
        CountedPtr<IStringValue> key, enrichmentKey;
        if (Failed(store_.MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive())) ||
            !Insert(&ZEL::IEventStore7::Insert, key.Get(), text.Get()) || !Receive(key.Get()))
            return false;
        if (number % enrichedEach != 0)
            return true;
        const auto enrichment = Value(EnrichmentOf(number));
        return Succeeded(
                   store_.MakeFlaggedEnrichmentKey(key.Get(), true, enrichmentKey.Receive())) &&
               Insert(&ZEL::IEventStore7::InsertSilent, enrichmentKey.Get(), enrichment.Get());
    }

    void Acknowledge() {
        const auto document = Value(
            R"({"event_query":{"include_enrichments":true,"events":[{"begin_time":{"operator":)"
            R"({"value":"greater_than_or_equal"},"value":")" +
            clock_.TimeOf(acked_) + R"("}}]}})");
        ReadBack callback(acked_);
        wm::EventObject stop;
        if (stop.Create(false, false) &&
            Succeeded(store_.Query(document.Get(), &callback, stop.Handle())))
            Print("acked " + std::to_string(acked_));
    }

    // True when there are none.
    bool TellErrors() {
        CountedPtr<ZEL::IValueCollection> list;
        if (Failed(store_.GetDatabaseErrors(list.Receive())))
            return false;
        for (std::size_t i = 0; i < list->Count(); ++i) {
            ZEL::IValueRecord& entry = *list->GetRecord(i);
            std::uint32_t operation = 0, count = 0, code = 0;
            entry.GetNumber(1, &operation);
            entry.GetNumber(2, &count);
            entry.GetNumber(3, &code);
            char numbers[64];
            std::snprintf(numbers, sizeof(numbers), " %u %u 0x%08X", operation, count, code);
            Print("told " + Utf8(entry.GetText(0)) + numbers);
        }
        return list->Count() == 0;
    }

private:
    std::string Record(unsigned number) {
        std::string text =
            R"({"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\t\\)" +
            std::to_string(number) + R"(.txt"]}}},"action":["create"],"begin_time":{"value":")" +
            clock_.TimeOf(number) + R"("},"seq_num":)" + std::to_string(number) + R"(,"fill":")";
        for (unsigned left = static_cast<unsigned>(random_()) % mostBytes_; left > 0; --left)
            text.push_back(static_cast<char>('A' + random_() % 26));
        char sum[32];
        text += '"';
        std::snprintf(sum, sizeof(sum), ",\"sum\":\"%08lx\"}",
                      ::crc32(0, reinterpret_cast<const Bytef*>(text.data()),
                              static_cast<uInt>(text.size())));
        return text + sum;
    }

    bool Receive(IStringValue* eventKey) {
        const auto value = Value("{\"event_pkey\":\"" + Escaped(Utf8(eventKey)) + "\"}");
        CountedPtr<IStringValue> key;
        return Succeeded(store_.MakeKey(eventKey, ZEL::keyKindReceive, key.Receive())) &&
               Insert(&ZEL::IEventStore7::Insert, key.Get(), value.Get());
    }

    // A full queue refuses: the same record is offered again.
    template <typename Operation>
    bool Insert(Operation operation, IStringValue* key, IStringValue* value) {
        HRESULT result = hr::fail;
        while ((result = (store_.*operation)(key, value)) == hr::fail)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return Succeeded(result);
    }

    ZEL::IEventStore7& store_;
    RecordClock& clock_;
    std::minstd_rand random_;
    const unsigned mostBytes_;
    unsigned acked_;
};

}  // namespace

int main(int argc, char** argv) {
    std::wstring directory;
    if (argc != 6 || !wm::ToWide(argv[1], directory))
        return 2;
    const auto number = [argv](int i) { return static_cast<unsigned>(std::atoi(argv[i])); };
    const unsigned first = number(2), end = first + number(3);
    wm::SetPathToken(L"%ZELDataStore%", directory);
    static DamageReports reports;
    wm::SetErrorReportSink(&reports);
    CountedPtr<ZEL::IEventStore7> store;
    if (Failed(wm::LoadInstalledObject(L"ZELStore", ZEL::eventStoreObjectId, ZEL::iidEventStore7,
                                       store.ReceiveVoid())) ||
        Failed(store->Initialize()) || Failed(store->SetLiveMode(true)))
        return 3;
    // Never destroyed: the job manager's thread asks for the time until the process ends.
    Writer writer(*store, *new RecordClock(number(4)), first, number(5));
    constexpr unsigned recordsPerAcknowledgement = 1000;
    bool works = true;
    for (unsigned i = first; works && i < end; ++i) {
        works = writer.Write(i);
        if ((i + 1) % recordsPerAcknowledgement == 0)
            writer.Acknowledge();
    }
    const bool written = Succeeded(store->Stop());
    ZEL::IgnoreResult(store->Shutdown(), "always succeeds");
    // Only now has the last batch been written.
    return writer.TellErrors() && written && works ? 0 : 4;
}
