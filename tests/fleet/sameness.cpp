#include <cpprest/json.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>

#include "fleet/fleetclient.h"
#include "fleet/fleetquestion.h"
#include "fleet/fleetrow.h"
#include "fleet/fleettable.h"
#include "support/client.h"
#include "support/storefixture.h"
#include "zelstore/keys/keyformat.h"

// Asks a store and a fleet that got its rows the same documents, and compares the answers text by
// text and in order.
//   sameness URL RECORDS DOCUMENTS     files with one of them on each line
// Prints what differs, and at its end a line of JSON with what was compared.

namespace {

using namespace ZEL;
using namespace zel::fleet;
using Texts = std::vector<std::string>;

[[noreturn]] void Fail(const std::string& why) {
    std::cerr << "sameness: " << why << "\n";
    std::exit(2);
}

void Expect(HRESULT result) {
    if (Failed(result))
        Fail("the store fails");
}

class LostRows final : public wm::IErrorReportSink {
public:
    void OnReport(const wm::ErrorReport& report) override {
        count += report.Label() == wm::reportLabel::lostRow ? 1 : 0;
    }
    unsigned count = 0;
};

// Fills a fleet with the rows of a store, the first half of them twice.
class Rows final : public IQueryCallback, public IQueryRows {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        *out = iid == iidQueryRows ? static_cast<IQueryRows*>(this) : nullptr;
        return *out != nullptr ? TOB_OK : TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT, IValueCollection*, bool, bool, IStringValue*,
                           std::int32_t) override {
        return hr::ok;
    }
    HRESULT OnQueryRow(const QueryRow& row) override {
        keys.emplace_back(row.key);
        const FleetReceipt receipt{1'700'000'000'000 + keys.size() / 7, 1};
        return AppendEventRow("host", receipt, row.key, row.text, &lines) ? hr::ok : hr::fail;
    }

    Texts keys;
    std::string lines;
};

class Comparison {
public:
    explicit Comparison(const std::string& url) : client_(AddressOf(url)) {
        wm::SetErrorReportSink(&lost_);
        Expect(store_->Initialize());
    }

    void Fill(const std::string& records);
    void Ask(const std::string& document);
    int Finish();

private:
    static FleetAddress AddressOf(const std::string& url) {
        FleetAddress address;
        std::string problem;
        if (!ReadFleetAddress(url, "", &address, &problem))
            Fail(problem);
        return address;
    }
    void Run(const std::string& statement) {
        std::string answer;
        if (!client_.Run(statement, &answer, &failure_))
            Fail(failure_.text + " for " + statement);
    }
    void Insert(std::string_view table, const std::string& lines) {
        if (!lines.empty() && !client_.Insert(table, lines, false, &failure_))
            Fail(failure_.text);
    }
    std::string Enrich(const std::string& key, unsigned number);
    Texts OfStore(const std::string& document, HRESULT* result);
    Texts OfFleet(FleetQuestion& question);
    void TakePage(FleetQuestion& question, std::size_t step, const std::vector<FleetRow>& page,
                  Texts* texts);
    void Compare(const std::string& document, const Texts& expected, Texts got, const char* how);

    LostRows lost_;
    test::TempStore directory_;
    const test::LoadedComponent component_;
    const CountedPtr<IEventStore7> store_ = component_.Store();
    FleetClient client_;
    FleetFailure failure_;
    unsigned equal_ = 0, different_ = 0, wider_ = 0, refused_ = 0, unknown_ = 0;
};

constexpr const char* everything = R"({"event_query":{"events":[{"begin_time":{"value":"0"}}]}})";

void Comparison::Fill(const std::string& records) {
    std::ifstream file(records);
    for (std::string line; std::getline(file, line);)
        test::InsertEvent(*store_, line);
    Expect(store_->Stop());
    Rows rows;
    wm::EventObject stop;
    stop.Create(wm::EventReset::automatic);
    Expect(store_->Query(test::Str(everything).Get(), &rows, stop.Handle()));
    const bool isOld = IsOldServer(client_.Version(&failure_));
    for (const std::string& statement : TableStatements({isOld, "", 0}))
        Run(statement);
    Insert(eventsTable, rows.lines);
    Insert(eventsTable, rows.lines.substr(0, rows.lines.find('\n', rows.lines.size() / 2) + 1));
    std::string enrichments;
    for (unsigned i = 0; i < rows.keys.size(); i += 5)
        enrichments += Enrich(rows.keys[i], i) + (i % 3 == 0 ? Enrich(rows.keys[i], i + 1) : "");
    Insert(enrichmentsTable, enrichments);
    Expect(store_->Stop());
}

// The row of the enrichment that was stored.
std::string Comparison::Enrich(const std::string& key, unsigned number) {
    const bool isSilent = number % 2 == 0;
    CountedPtr<IStringValue> made;
    Expect(store_->MakeFlaggedEnrichmentKey(test::Str(key).Get(), isSilent, made.Receive()));
    const std::string text = "{\"n\":" + std::to_string(number) + "}";
    Expect(store_->InsertSilent(made.Get(), test::Str(text).Get()));
    std::string line =
        "{\"host\":\"host\",\"sent_ms\":1,\"live\":" + std::to_string(isSilent ? 0 : 1) +
        ",\"begin_time\":";
    AppendJsonText(BeginTimeOf(key), &line);
    const std::pair<const char*, std::string> members[] = {
        {"base_key", key}, {"key", test::Utf8(made.Get())}, {"text", text}};
    for (const auto& [name, value] : members) {
        line.append(",\"").append(name).append("\":");
        AppendJsonText(value, &line);
    }
    return line + "}\n";
}

Texts Comparison::OfStore(const std::string& document, HRESULT* result) {
    test::RecordingCallback callback;
    *result = test::RunQuery(*store_, document, callback);
    return std::move(callback.texts);
}

void Comparison::TakePage(FleetQuestion& question, std::size_t step,
                          const std::vector<FleetRow>& page, Texts* texts) {
    EnrichmentJoin join;
    const bool isJoined = question.JoinsEnrichments() || question.LeavesOutLive();
    std::size_t taken = 0;
    for (std::size_t at = 0; isJoined && at < page.size(); at += taken) {
        const auto onLine = [&](std::string_view line) {
            return join.Add(line) || (Fail("?"), false);
        };
        if (!client_.Select(join.Statement(std::span(page).subspan(at), &taken), onLine, &failure_))
            Fail(failure_.text);
    }
    for (const FleetRow& row : page)
        if (question.Decide(step, row) == FleetQuestion::Verdict::wanted &&
            !(question.LeavesOutLive() && join.HasLive(row)))
            texts->push_back(ResultText(row, question.JoinsEnrichments() ? join.ArrayOf(row) : ""));
}

Texts Comparison::OfFleet(FleetQuestion& question) {
    constexpr std::uint64_t pageRows = 311;
    Texts texts;
    FleetRowReader reader;
    for (std::size_t step = 0; step < question.Steps(); ++step) {
        std::vector<FleetRow> page;
        for (FleetRow last; page.empty() || page.size() == pageRows;) {
            const bool isFirst = page.empty();
            page.clear();
            const auto onLine = [&](std::string_view line) {
                return reader.Read(line, &page.emplace_back()) || (Fail(std::string(line)), false);
            };
            if (!client_.Select(question.Page(step, pageRows, isFirst ? nullptr : &last), onLine,
                                &failure_))
                Fail(failure_.text);
            TakePage(question, step, page, &texts);
            if (page.empty())
                break;
            last = page.back();
        }
    }
    return texts;
}

void Comparison::Compare(const std::string& document, const Texts& expected, Texts got,
                         const char* how) {
    if (expected == got) {
        ++equal_;
        return;
    }
    ++different_;
    std::size_t at = 0;
    while (at < expected.size() && at < got.size() && expected[at] == got[at])
        ++at;
    std::cout << "FAILED (" << how << "): " << document << "\n  " << expected.size() << " and "
              << got.size() << " rows, from row " << at
              << " on: " << (at < expected.size() ? expected[at] : "-")
              << "\n  and: " << (at < got.size() ? got[at] : "-") << "\n";
}

// A store gives an event once for each part that wants it, and cuts off by rows and not by events.
void Comparison::Ask(const std::string& document) {
    web::json::value parsed = web::json::value::parse(document);
    web::json::value& query = parsed["event_query"];
    std::int64_t limit = -1;
    if (query.has_field("limit_result_count"))
        limit = query.at("limit_result_count").as_integer();
    query["limit_result_count"] = web::json::value(-1);
    const unsigned lostBefore = lost_.count;
    HRESULT result = hr::ok;
    Texts expected;
    std::set<std::string> seen;
    for (std::string& text : OfStore(parsed.serialize(), &result))
        if (seen.insert(text).second)
            expected.push_back(std::move(text));
    if (limit >= 0)
        expected.resize(std::min<std::size_t>(expected.size(), std::max<std::int64_t>(limit, 1)));
    std::string problem;
    const auto question = FleetQuestion::Make(document, {}, &problem);
    // What the store does not compile is told ahead of the question; it loses rows where it comes
    // to that.
    if (!question && (problem.find("the fleet can't test") != problem.npos ||
                      problem.find("the pattern can't be read") != problem.npos)) {
        ++refused_;
        return;
    }
    if (lost_.count != lostBefore) {
        ++unknown_;  // the store gave up on a row
        return;
    }
    if (!question || Failed(result)) {
        Compare(document + " " + problem, {Failed(result) ? "refused" : "answered"},
                {question ? "answered" : "refused"}, "whether it is asked");
        return;
    }
    for (std::size_t step = 0; step < question->Steps(); ++step)
        wider_ += question->GivesTooMuch(step) ? 1 : 0;
    Texts got = OfFleet(*question);
    if (question->MostRows() >= 0 && got.size() > static_cast<std::size_t>(question->MostRows()))
        got.resize(static_cast<std::size_t>(question->MostRows()));
    Compare(document, expected, got, "in the order of parts");
    if (limit >= 0)
        return;
    const auto newest =
        FleetQuestion::Make(document, {{"host"}, FleetScope::Order::newestFirst}, &problem);
    got = OfFleet(*newest);
    std::reverse(got.begin(), got.end());
    // A store has one order for one sub-query alone.
    if (parsed["event_query"]["events"].size() != 1) {
        std::sort(expected.begin(), expected.end());
        std::sort(got.begin(), got.end());
    }
    Compare(document, expected, got, "newest first");
}

int Comparison::Finish() {
    std::cout << "{\"equal\":" << equal_ << ",\"different\":" << different_
              << ",\"wider\":" << wider_ << ",\"refused\":" << refused_
              << ",\"given_up\":" << unknown_ << "}\n";
    Expect(store_->Shutdown());
    return different_ == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc != 4)
        Fail("sameness URL RECORDS DOCUMENTS");
    Comparison comparison(argv[1]);
    comparison.Fill(argv[2]);
    std::ifstream documents(argv[3]);
    for (std::string line; std::getline(documents, line);)
        comparison.Ask(line);
    return comparison.Finish();
}
