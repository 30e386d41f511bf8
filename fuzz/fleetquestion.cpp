#include "fleet/fleetquestion.h"

#include <cpprest/json.h>

#include "common/errorreport.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "fleet/fleettable.h"
#include "fuzz.h"
#include "sqlreader.h"
#include "zelstore/keys/keysplit.h"
#include "zelstore/query/keytester.h"

// Questions to a fleet: no document makes a statement that means more than its conditions, or less.
// Input: a line with d, the document on the next line; or with p, I to leave case out, and an
// expression on the next line. Then a line for a host, one for the object type and the action, and
// the values of the row's other fields, a line each; an empty one: the row has no such field.

namespace {

using namespace ZEL;
using namespace zel::fleet;

constexpr KeyField fields[] = {KeyField::actorHash,      KeyField::actorPathName,
                               KeyField::targetHash,     KeyField::targetPathName,
                               KeyField::targetSourceIp, KeyField::targetDestinationIp,
                               KeyField::correlationUid, KeyField::actorUid,
                               KeyField::targetTypeId,   KeyField::targetUrlText};

// A pattern loses rows; that is no find.
class NoReports final : public wm::IErrorReportSink {
public:
    void OnReport(const wm::ErrorReport&) override {}
};

std::string DocumentOf(const std::string& expression, bool caseSensitive) {
    web::json::value document;
    auto& event = document["event_query"]["events"][0];
    event["begin_time"]["value"] = web::json::value("2026-11-12T10:00:00.000Z");
    event["end_time"]["value"] = web::json::value("2026-11-12T11:00:00.000Z");
    auto& target = event["artifacts"]["target"];
    target["object_type"] = web::json::value("url");
    target["text"]["operator"]["value"] = web::json::value("fits_pattern");
    target["text"]["operator"]["case_insensitive"] = web::json::value(!caseSensitive);
    target["text"]["value"][0] = web::json::value(expression);
    return document.serialize();
}

FleetRow RowOf(const std::string& host, fuzz::Input& input) {
    FleetRow row{0, host, "", "", "2026-11-12T10:30:00.000Z", 7, 0, 0};
    const std::string kinds = input.Line();
    const std::size_t cut = kinds.find(' ');
    const auto plain = [](std::string text) {
        std::erase_if(text, [](char c) { return c == '<'; });
        return text;
    };
    row.key = "p<begin_time>" + row.beginTime + "<sequence>0000000007<object_type>" +
              plain(kinds.substr(0, cut)) + "<action>" +
              plain(cut == kinds.npos ? "" : kinds.substr(cut + 1));
    std::string all;
    for (const KeyField field : fields)
        if (const std::string value = plain(input.Line()); !value.empty())
            row.key += "<" + std::string(KeyFieldName(field)) + ">" + value;
    return row;
}

// The row as the table has it.
fuzz::SqlRow ColumnsOf(const FleetRow& row) {
    KeyFields split;
    SplitKeyFields(row.key, &split);
    fuzz::SqlRow columns;
    std::int64_t present = 0;
    for (const KeyFieldRow& field : keyFieldTable) {
        std::string_view value;
        const bool isThere = Succeeded(GetKeyField(split, field.name, &value));
        columns[std::string(ColumnOf(field.field))] = {true, std::string(value), 0, {}};
        if (isThere)
            present |= PresentBitOf(field.field);
    }
    for (const auto& [name, value] :
         {std::pair("host", row.host), std::pair("key", row.key), std::pair("event", row.event)})
        columns[name] = {true, value, 0, {}};
    for (const auto& [name, value] :
         {std::pair<const char*, std::int64_t>("sequence", row.sequence),
          {"present", present},
          {"receive_ms", 0},
          {"receive_no", 0}})
        columns[name] = fuzz::SqlNumber(value);
    return columns;
}

// Whether a question finds the row, in which sub-query, by what its statements say. -1: a pattern
// can't be said.
int Found(FleetQuestion& question, const FleetRow& row, const fuzz::SqlRow& columns) {
    std::size_t found = 0;
    for (std::size_t step = 0; step < question.Steps(); ++step) {
        if (question.IsByReceive(step))
            continue;
        const std::string sql = question.Page(step, 10, nullptr);
        // Behind any row, so that its texts stand in the statement too.
        fuzz::SqlReader(question.Page(step, 10, &row), columns).Read();
        const auto meaning = fuzz::SqlReader(sql, columns).Read();
        if (!meaning.isWanted)
            continue;
        FleetRow here = row;
        here.part = static_cast<unsigned>(meaning.part);
        const auto verdict = question.Decide(step, here);
        if (verdict == FleetQuestion::Verdict::lost)
            return -1;
        fuzz::Check(question.GivesTooMuch(step) || verdict == FleetQuestion::Verdict::wanted,
                    {sql, row.key});
        found += verdict == FleetQuestion::Verdict::wanted ? 1 : 0;
    }
    return static_cast<int>(found);
}

void CheckDocument(const std::string& document, const FleetRow& row) {
    KeyTester tester;
    std::string problem;
    if (!FleetQuestion::Make(document, {}, &problem)) {
        fuzz::Check(!problem.empty(), {document});
        return;
    }
    try {
        if (Failed(tester.Read(document)))
            return;  // by time of receipt
        const int expected = tester.Passes(row.key) ? 1 : 0;
        for (const auto order : {FleetScope::Order::parts, FleetScope::Order::newestFirst}) {
            const auto question = FleetQuestion::Make(document, {{row.host}, order}, &problem);
            fuzz::Check(question != nullptr, {document, problem});
            const int found = Found(*question, row, ColumnsOf(row));
            fuzz::Check(found == expected || found < 0,
                        {document, row.key, question->Page(0, 10, nullptr)});
        }
    } catch (const std::runtime_error&) {  // a pattern that takes too long
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static NoReports noReports;
    wm::SetErrorReportSink(&noReports);
    fuzz::Input input(data, size);
    if (!wm::IsUtf8(input.Rest()))
        return 0;
    const std::string kind = input.Line();
    std::string document = input.Line();
    if (kind.starts_with('p'))
        document = DocumentOf(document, kind.find('I') == kind.npos);
    const std::string host = input.Line();
    CheckDocument(document, RowOf(host, input));
    return 0;
}
