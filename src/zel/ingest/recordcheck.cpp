#include "zel/ingest/recordcheck.h"

#include <cpprest/json.h>

#include <optional>

#include "connection/resultwords.h"
#include "connection/storereports.h"
#include "records/recordtime.h"
#include "zel/query/documentcheck.h"
#include "zel/query/jsonscan.h"
#include "zel/terminal/textfit.h"
#include "zelstore/keys/keyformat.h"

// The store makes a key or says in one code that it can't. What a person needs to mend a line -
// which name is not known, where the text stops to be JSON - is found out here by reading the line
// once more, which costs only where something is wrong.

namespace zel {

namespace {

// A record is read as a part of a query is, by the same tables of names: so the check of queries
// finds the name that the store did not know.
std::optional<LineProblem> UnknownNameIn(const std::string& line) {
    constexpr std::string_view kinds[] = {"unknown object type", "unknown action",
                                          "unknown operator", "unknown session state",
                                          "unknown state"};
    constexpr std::string_view root = "event_query.events[0].";
    web::json::value document;
    std::string problem;
    if (!ParseDocument(R"({"event_query":{"events":[)" + line + "]}}", &document, &problem))
        return std::nullopt;
    for (const std::string& finding : CheckDocument(document).errors)
        for (const std::string_view kind : kinds) {
            const std::size_t at = finding.find(": " + std::string(kind) + " \"");
            if (at == finding.npos || !finding.starts_with(root))
                continue;
            const std::string place = finding.substr(root.size(), at - root.size());
            const std::string what = finding.substr(at + 2 + kind.size());
            return LineProblem{kind, what.substr(0, what.find("; known:")) + ", in " + place};
        }
    return std::nullopt;
}

// From the outside in: what is no JSON has no names, and only where the names are known is the
// store's own word of use.
LineProblem WhyNotUnderstood(const std::string& line) {
    const JsonScan scan(line);
    if (!scan.Ok())
        return {"not JSON", ": column " + std::to_string(PlaceOf(line, scan.ErrorAt()).column) +
                                ": " + scan.Error()};
    if (const auto unknown = UnknownNameIn(line))
        return *unknown;
    return {"no record", ": " + TakeReason()};
}

}  // namespace

// What each code of MakeKey means for an event.
LineProblem WhyNoKey(ZEL::HRESULT result, const std::string& line) {
    namespace hr = ZEL::hr;
    if (result == hr::unexpected)
        return WhyNotUnderstood(line);
    if (result == hr::invalidArgument)
        return {"no begin_time", ""};
    if (result == hr::fail)
        return {"no target or no action", ""};
    return {"no key", ": " + Describe(static_cast<std::int32_t>(result))};
}

LineProblem WhyBadTime(std::string_view key) {
    const std::string_view time = ZEL::BeginTimeOf(key);
    if (time.empty())
        return {"no begin_time", ""};
    if (!IsRecordTime(time))
        return {"begin_time not like 2026-11-12T10:00:00.000Z", ": \"" + Escaped(time) + "\""};
    if (!RecordTimeExists(time))
        return {"begin_time does not exist or lies before 1601", ": " + std::string(time)};
    return {};
}

}  // namespace zel
