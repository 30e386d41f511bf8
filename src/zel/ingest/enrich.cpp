#include <cpprest/json.h>

#include "common/textbridge.h"
#include "connection/agentrequest.h"
#include "connection/storesession.h"
#include "records/eventkey.h"
#include "records/timearg.h"
#include "zel/commands.h"
#include "zel/ingest/enrichmentwriter.h"
#include "zel/ingest/readlines.h"
#include "zel/query/jsonscan.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"

// Enrichments that people hand in, one or a file of them.

namespace zel {

namespace {

// The last line, once the store is closed, and the value for the program's end. `isGood`: nothing
// else went wrong.
int Summarise(const StoreSession& store, const EnrichmentWriter& writer, std::uint64_t rejected,
              bool isGood) {
    const std::uint64_t lost = store.Lost().enrichments;
    std::string text = std::to_string(writer.Taken() - lost) + " enrichment(s) " +
                       (AgentSocket().empty() ? "stored" : "taken by the agent") +
                       (store.Emptied() ? "" : " or still waiting");
    if (lost != 0)
        text += ", " + std::to_string(lost) + " lost";
    if (writer.Refused() != 0)
        text += ", " + std::to_string(writer.Refused()) + " refused";
    if (rejected != 0)
        text += ", " + std::to_string(rejected) + " line(s) rejected";
    Say(text);
    if (Interrupted())
        return exitCode::interrupted;
    if (writer.Refused() != 0)
        return exitCode::noStore;
    return isGood && lost + rejected == 0 ? exitCode::done : exitCode::losses;
}

std::string SyntaxProblem(std::string_view text, const JsonScan& scan) {
    const TextPlace place = PlaceOf(text, scan.ErrorAt());
    return "line " + std::to_string(place.line) + ", column " + std::to_string(place.column) +
           ": " + scan.Error() + "\n" + PointAt(place.lineText, place.byteInLine);
}

// Takes the two members of a line out of it; why not, when it fails. The enrichment is taken as it
// stands in the line, so that numbers and escapes come out as they were written.
LineProblem ReadLine(const std::string& line, std::string* key, std::string* enrichment) {
    if (!wm::IsUtf8(line))
        return {"not UTF-8", ""};
    const JsonScan scan(line);
    if (!scan.Ok())
        return {"not JSON",
                std::string(": ") + scan.Error() + "\n" + PointAt(line, scan.ErrorAt())};
    const std::string_view rawKey = scan.Member("key");
    *enrichment = scan.Member("enrichment");
    if (rawKey.empty() || enrichment->empty())
        return {R"(not of the form {"key":"...","enrichment":...})", ""};
    if (rawKey.front() != '"')
        return {"the key is no string", ""};
    *key = web::json::value::parse(std::string(rawKey)).as_string();
    return {WhyNoEventKey(*key), ""};
}

// A line that is no good is told and passed over: the others are worth having.
int RunLines(const EnrichOptions& options) {
    if (!options.file.empty()) {
        Say("with --ndjson the keys stand in the file: enrich --ndjson [FILE]");
        return exitCode::usage;
    }
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::existing))
        return exitCode::noStore;
    EnrichmentWriter writer(store, options.live);
    LineProblems problems(TellsAll());
    std::string key, enrichment;
    const auto take = [&](const std::string& line, const LinePlace& place) {
        const LineProblem problem = ReadLine(line, &key, &enrichment);
        if (problem.kind.empty())
            return writer.Add(key, enrichment);
        problems.Add(place.Text(), problem);
        return true;
    };
    const LinesEnd end = ReadLines(options.key.empty() ? "-" : options.key, problems, take);
    problems.TellRest();
    const bool written = store.Close();
    return Summarise(store, writer, problems.Count(), written && end != LinesEnd::unreadable);
}

// The whole text of a file, packed or not; false, with a message, when it can't be read.
bool ReadWhole(const std::string& file, std::string* text) {
    constexpr std::size_t longest = 64U << 20;
    InputFiles files(AwaitDescriptor);
    const LinesEnd end = ReadParts(file, files, [&](const std::string& name, ByteStream& bytes) {
        std::string buffer(64U << 10, '\0'), error;
        long got = 0;
        while ((got = bytes.Read(buffer.data(), buffer.size(), &error)) > 0) {
            text->append(buffer, 0, static_cast<std::size_t>(got));
            if (text->size() > longest)
                got = -1, error = "longer than 64 MiB";
            if (got < 0)
                break;
        }
        if (got < 0)
            TellUnreadable({name}, error);
        return got < 0 ? LinesEnd::unreadable : LinesEnd::all;
    });
    return end == LinesEnd::all && !Interrupted();
}

// All is checked ahead of opening the store, so that a slip costs nothing and changes nothing.
bool ReadOne(const EnrichOptions& options, std::string* enrichment) {
    const std::string why(wm::IsUtf8(options.key) ? WhyNoEventKey(options.key) : "not UTF-8");
    if (!why.empty()) {
        Say("KEY: " + why + "\n" + PointAt(options.key, 0));
        return false;
    }
    if (!ReadWhole(options.file.empty() ? "-" : options.file, enrichment))
        return false;
    if (!wm::IsUtf8(*enrichment)) {
        Say("the enrichment is not UTF-8");
        return false;
    }
    const JsonScan scan(*enrichment);
    if (!scan.Ok())
        Say("the enrichment is no JSON: " + SyntaxProblem(*enrichment, scan));
    return scan.Ok();
}

}  // namespace

int RunEnrich(const EnrichOptions& options) {
    if (options.ndjson)
        return RunLines(options);
    std::string enrichment;
    if (options.key.empty()) {
        Say("the KEY of an event is missing");
        return exitCode::usage;
    }
    if (!ReadOne(options, &enrichment))
        return Interrupted() ? exitCode::interrupted : exitCode::usage;
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::existing))
        return exitCode::noStore;
    EnrichmentWriter writer(store, options.live);
    static_cast<void>(writer.Add(options.key, enrichment));  // what failed is told and counted
    const bool written = store.Close();
    return Summarise(store, writer, 0, written);
}

}  // namespace zel
