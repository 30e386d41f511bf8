// A host that writes numbered records, for drivers that kill it, break its disk and read the store
// behind it:
//
//   storewriter DIRECTORY FIRST COUNT PER_DAY MOST_BYTES
//
// The record's number gives its time, and the clock moves along, so that the store gets folders of
// several days. Each record has a receive-time row and a checksum of its text; each seventh has a
// silent enrichment. What the program prints, a line each:
//
//   acked N                            all records below N were read back, but for those missing
//   missing A B                        the records from A on, and below B, which later ones passed
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
#include <thread>
#include <utility>

#include "support/client.h"

namespace {

using namespace ZEL;
using test::Str;

constexpr unsigned enrichedEach = 7;
constexpr unsigned recordsPerAcknowledgement = 1000;

std::string EnrichmentOf(unsigned number) {
    return "{\"of\":" + std::to_string(number) + "}";
}

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

// The time of the record that is being written: a millisecond each, so many a day.
class RecordClock final : public wm::IClock {
public:
    explicit RecordClock(unsigned perDay) : perDay_(perDay) { wm::SetClock(this); }

    void SetRecord(unsigned number) { number_ = number; }
    wm::SystemTime UtcNow() noexcept override { return SystemTimeOf(number_); }
    std::uint64_t TickCount64() noexcept override { return 0; }
    std::string TimeOf(unsigned number) const {
        const wm::SystemTime time = SystemTimeOf(number);
        char text[48];
        std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", time.year,
                      time.month, time.day, time.hour, time.minute, time.second, time.milliseconds);
        return text;
    }

private:
    wm::SystemTime SystemTimeOf(unsigned number) const noexcept {
        using namespace std::chrono;
        const year_month_day date(sys_days(year(2020) / 1 / 1) + days(number / perDay_));
        const auto narrow = [](unsigned value) { return static_cast<std::uint16_t>(value); };
        const unsigned ms = number % perDay_;
        return {narrow(static_cast<unsigned>(static_cast<int>(date.year()))),
                narrow(static_cast<unsigned>(date.month())),
                0,
                narrow(static_cast<unsigned>(date.day())),
                narrow(ms / 3600000),
                narrow(ms / 60000 % 60),
                narrow(ms / 1000 % 60),
                narrow(ms % 1000)};
    }

    const unsigned perDay_;
    std::atomic<unsigned> number_{0};
};

class Writer {
public:
    Writer(IEventStore7& store, RecordClock& clock, unsigned first, unsigned mostBytes)
        : store_(store), clock_(clock), random_(first), mostBytes_(mostBytes), acked_(first) {}

    bool Write(unsigned number) {
        clock_.SetRecord(number);
        const auto text = Str(Record(number));
        CountedPtr<IStringValue> key, receiveKey, enrichmentKey;
        if (Failed(store_.MakeKey(text.Get(), keyKindEvent, key.Receive())) ||
            !Insert(&IEventStore7::Insert, key, text) ||
            Failed(store_.MakeKey(key.Get(), keyKindReceive, receiveKey.Receive())) ||
            !Insert(&IEventStore7::Insert, receiveKey, Str(ReceiveRow(test::Utf8(key.Get())))))
            return false;
        return number % enrichedEach != 0 ||
               (Succeeded(
                    store_.MakeFlaggedEnrichmentKey(key.Get(), true, enrichmentKey.Receive())) &&
                Insert(&IEventStore7::InsertSilent, enrichmentKey, Str(EnrichmentOf(number))));
    }

    // Reads back what is new, with its enrichments.
    void Acknowledge() {
        test::RecordingCallback callback;
        IgnoreResult(
            test::RunQuery(
                store_,
                R"({"event_query":{"include_enrichments":true,"events":[{"begin_time":{"operator":)"
                R"({"value":"greater_than_or_equal"},"value":")" +
                    clock_.TimeOf(acked_) + R"("}}]}})",
                callback),
            "it acknowledges nothing then");
        for (const std::string& text : callback.texts) {
            const unsigned number = NumberOf(text);
            const bool isWhole = number % enrichedEach != 0 ||
                                 text.find("[" + EnrichmentOf(number) + "]") != text.npos;
            if (!isWhole && std::exchange(incomplete_, number) != number)
                break;  // its enrichment may be on its way
            if (number < acked_ || !isWhole)
                continue;
            if (number != acked_)
                Print("missing " + std::to_string(acked_) + " " + std::to_string(number));
            acked_ = number + 1;
        }
        Print("acked " + std::to_string(acked_));
    }

    // True when there are none.
    bool TellErrors() {
        CountedPtr<IValueCollection> list;
        if (Failed(store_.GetDatabaseErrors(list.Receive())))
            return false;
        for (std::size_t i = 0; i < list->Count(); ++i) {
            IValueRecord& entry = *list->GetRecord(i);
            std::uint32_t operation = 0, count = 0, code = 0;
            entry.GetNumber(1, &operation);
            entry.GetNumber(2, &count);
            entry.GetNumber(3, &code);
            char numbers[64];
            std::snprintf(numbers, sizeof(numbers), " %u %u 0x%08X", operation, count, code);
            Print("told " + test::Utf8(entry.GetText(0)) + numbers);
        }
        return list->Count() == 0;
    }

private:
    static unsigned NumberOf(const std::string& text) {
        constexpr std::string_view name = "\"seq_num\":";
        const std::size_t found = text.find(name);
        return found == text.npos ? 0
                                  : static_cast<unsigned>(std::atoi(&text[found + name.size()]));
    }

    std::string Record(unsigned number) {
        const std::string name = std::to_string(number);
        std::string text = test::FileEvent(clock_.TimeOf(number), static_cast<int>(number),
                                           "create", "C:\\\\t\\\\" + name + ".txt");
        text.back() = ',';
        text += "\"fill\":\"";
        for (unsigned left = static_cast<unsigned>(random_()) % mostBytes_; left > 0; --left)
            text.push_back(static_cast<char>('A' + random_() % 26));
        text.push_back('"');
        char sum[32];
        std::snprintf(sum, sizeof(sum), ",\"sum\":\"%08lx\"}",
                      ::crc32(0, reinterpret_cast<const Bytef*>(text.data()),
                              static_cast<uInt>(text.size())));
        return text + sum;
    }

    static std::string ReceiveRow(const std::string& eventKey) {
        std::string row = "{\"event_pkey\":\"";
        for (const char c : eventKey)
            row.append(c == '\\' ? 1 : 0, '\\').push_back(c);  // of the path in it
        return row + "\"}";
    }

    // A full queue refuses: the same record is offered again.
    template <typename Operation>
    bool Insert(Operation operation, const CountedPtr<IStringValue>& key,
                const CountedPtr<IStringValue>& value) {
        HRESULT result = hr::fail;
        while ((result = (store_.*operation)(key.Get(), value.Get())) == hr::fail)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return Succeeded(result);
    }

    IEventStore7& store_;
    RecordClock& clock_;
    std::minstd_rand random_;
    const unsigned mostBytes_;
    unsigned acked_, incomplete_ = ~0U;
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
    const auto store = test::LoadedComponent().Store();
    if (Failed(store->Initialize()) || Failed(store->SetLiveMode(true)))
        return 3;
    // Never destroyed: the job manager's thread asks for the time until the process ends.
    Writer writer(*store, *new RecordClock(number(4)), first, number(5));
    bool works = true;
    for (unsigned i = first; works && i < end; ++i) {
        works = writer.Write(i);
        if ((i + 1) % recordsPerAcknowledgement == 0)
            writer.Acknowledge();
    }
    const bool written = Succeeded(store->Stop());
    IgnoreResult(store->Shutdown(), "always succeeds");
    // Only now has the last batch been written.
    return writer.TellErrors() && written && works ? 0 : 4;
}
