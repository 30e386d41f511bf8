#include <stdlib.h>

#include <atomic>
#include <filesystem>

#include "common/countedptr.h"
#include "common/describedmachine.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "plainstore.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/keymaker.h"

// The whole road: records go into a real store and queries come out, against a plain look at the
// same records. Input: choices, a byte each, of what is written on which days and what is asked.

namespace {

using namespace ZEL;
using namespace ZEL::fuzz;

class Clock final : public wm::IClock {
public:
    wm::SystemTime UtcNow() noexcept override { return {2026, 11, 0, day, 10, 0, 0, 0}; }
    std::uint64_t TickCount64() noexcept override { return 0; }
    std::atomic<std::uint16_t> day{12};
};

class Callback final : public IQueryCallback {
public:
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT status, IValueCollection* results, bool isFinal, bool complete,
                           IStringValue*, std::int32_t) override {
        Check(!ended, {"called behind the end"});
        ended = isFinal;
        outcome.status = status;
        outcome.complete = complete;
        for (std::size_t i = 0; results != nullptr && i < results->Count(); ++i) {
            IStringValue* const value = results->GetValue(i);
            outcome.results.emplace_back();
            wm::ToUtf8({value->GetText(), value->GetLength(0)}, outcome.results.back());
        }
        return hr::ok;
    }
    bool ended = false;
    Outcome outcome;
};

// One for the process, like the store. Emptied and started anew for each input.
class RealStore {
public:
    RealStore() {
        std::string error;
        wm::SetMachine(wm::DescribedMachine::Parse("{}", &error).release());
        wm::SetClock(&clock_);
        std::string path = (std::filesystem::temp_directory_path() / "zelfuzz-XXXXXX").string();
        Check(::mkdtemp(path.data()) != nullptr, {path});
        directory_ = path;
        wm::SetPathToken(L"%ZELDataStore%", directory_.wstring());
    }
    ~RealStore() { std::filesystem::remove_all(directory_); }
    RealStore(const RealStore&) = delete;
    RealStore& operator=(const RealStore&) = delete;

    void Start(unsigned day) {
        clock_.day = static_cast<std::uint16_t>(day);
        Check(core_.Initialize() == hr::ok, {"not started"});
    }
    void Insert(const std::string& key, const std::string& value,
                RecordKind kind = RecordKind::event) {
        Check(core_.EnqueueForInsertion(key, value, kind) == hr::ok, {key});
    }
    // All that was inserted is on the disk behind it, and can still be asked for.
    void Stop() { Check(core_.Stop() == hr::ok, {"not stopped"}); }
    Outcome Run(const std::string& document) {
        std::wstring wide;
        wm::ToWide(document, wide);
        const auto text = CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(wide.c_str()));
        Callback callback;
        wm::EventObject stop;
        stop.Create(wm::EventReset::automatic);
        Check(
            core_.Query(text.Get(), &callback, stop.Handle(), nullptr) == callback.outcome.status &&
                callback.ended,
            {document});
        return callback.outcome;
    }
    void Clear() {
        CountedPtr<IValueCollection> errors;
        Check(core_.GetDatabaseErrors(errors.Receive()) == hr::ok && errors->Count() == 0,
              {"a database failed"});
        Check(core_.Shutdown() == hr::ok, {"not shut down"});
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            std::filesystem::remove_all(entry);
    }

private:
    static constexpr std::uint32_t never = 3600000;

    // The job manager's thread, which outlives the store, may still look at it.
    Clock& clock_ = *new Clock;
    std::filesystem::path directory_;
    EventStoreImpl core_{{never, never}};
};

struct Writer {
    Input& input;
    RealStore& store;
    PlainStore& plain;
    std::vector<std::pair<std::string, Row>> events;  // all so far, with their keys
    unsigned counter = 0;
    EventKeyMaker keys{};

    void WriteEvent(Rows& folder) {
        const Said said = MakeEvent(input, false);
        Row row{Written(said.event), TimeText(*said.begin), {}, "", ""};
        const std::string plainKey = KeyOf(said, &row.facts);
        std::string key;
        Check(keys.Make(row.value, &key) == hr::ok && key == plainKey, {row.value, key, plainKey});
        store.Insert(key, row.value);
        folder[key] = row;
        events.emplace_back(key, row);
    }
    void WriteEnrichment(Rows& folder) {
        const auto& [eventKey, event] = events[input.Below(static_cast<unsigned>(events.size()))];
        const char* const flags[] = {"", "<silent_enrichment>0", "<silent_enrichment>1"};
        const std::string key = eventKey + "<silent_sequence>000000000" +
                                std::to_string(counter++ % 10) + input.Pick(flags);
        const std::string value = "{\"n\":" + std::to_string(counter) + "}";
        const bool silent = input.Below(4) != 0;
        store.Insert(key, value, silent ? RecordKind::silentEnrichment : RecordKind::event);
        std::string date = event.time.substr(0, 10);
        std::erase(date, '-');
        if (silent)
            plain.silent[date][key] = value;
        else
            folder[key] = {value, event.time, event.facts, "", ""};
    }
    void WriteReceiveTime(Rows& folder) {
        const auto& eventKey = events[input.Below(static_cast<unsigned>(events.size()))].first;
        const std::string time = TimeText({11 + static_cast<int>(input.Below(3))});
        const std::string key =
            "r<receive_time>" + time + "<sequence>000000000" + std::to_string(input.Below(4));
        Row row{"", time, {}, input.Below(8) != 0 ? eventKey : "p<gone", "null"};
        row.value = "{\"event_pkey\":" + web::json::value(row.eventKey).serialize();
        if (input.Below(2) != 0)
            row.value += ",\"event_enrichment\":" + (row.enrichment = "{\"e\":[1]}");
        row.value += "}";
        if (input.Below(8) == 0)
            row = {"no JSON", time, {}, "", ""};
        store.Insert(key, row.value);
        folder[key] = row;
    }
    void WriteDay() {
        const unsigned day = 11 + input.Below(4);
        store.Start(day);
        const unsigned count = input.Below(10);
        for (unsigned i = 0; i < count; ++i) {
            Rows& folder = plain.folders["202611" + std::to_string(day)];
            const unsigned kind = events.empty() ? 0 : input.Below(8);
            if (kind < 5)
                WriteEvent(folder);
            else if (kind < 7)
                WriteEnrichment(folder);
            else
                WriteReceiveTime(folder);
        }
        store.Stop();
    }
};

void Ask(Input& input, RealStore& store, const PlainStore& plain) {
    Query query;
    const unsigned flags = input.Byte();
    query.document.limit_result_count = static_cast<int>(flags % 8) - 3;
    query.document.include_enrichments = (flags & 8) != 0;
    query.document.no_live_enriched_events = (flags & 16) != 0;
    for (unsigned count = 1 + input.Below(5) / 3; count > 0; --count) {
        query.events.push_back(MakeEvent(input, true));
        query.document.events.push_back(query.events.back().event);
    }
    const std::string document = Written(query.document);
    const Outcome expected = plain.Run(query), outcome = store.Run(document);
    Check(outcome.status == expected.status && outcome.complete == expected.complete &&
              outcome.results == expected.results,
          {document, Joined(outcome.results), Joined(expected.results)});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static RealStore store;
    Input input(data, size);
    PlainStore plain;
    Writer writer{input, store, plain, {}};
    for (unsigned days = 1 + input.Below(3); days > 0; --days)
        writer.WriteDay();
    for (int queries = 0; queries == 0 || (queries < 4 && !input.Empty()); ++queries)
        Ask(input, store, plain);
    store.Clear();
    return 0;
}
