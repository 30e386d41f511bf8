#include <cpprest/json.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "common/textbridge.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "connection/storesession.h"
#include "records/timearg.h"
#include "zel/commands.h"
#include "zel/ingest/readlines.h"
#include "zel/query/eventkey.h"
#include "zel/query/jsonscan.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"
#include "zelstore/keys/keyformat.h"

// What an analyst found out of an event is stored under the event's key and a number. Enrichments
// go to the folder of their event's date, live ones too: only there are they joined to events.
//
// The number keeps the enrichments of one event apart and in the order in which they were made,
// from run to run. The store's own numbers begin again with each process, so the first of this run
// would take the place of the first of an earlier one; numbers by the clock don't.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

// One line of text with the same meaning: results are one a line. Line ends stand between the
// tokens of good JSON only, never within a string, so nothing changes its meaning.
std::string OnOneLine(std::string_view json) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = json.find_first_not_of(blanks);
    std::string line(json.substr(first, json.find_last_not_of(blanks) + 1 - first));
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::replace(line.begin(), line.end(), '\r', ' ');
    return line;
}

class Enrich {
public:
    Enrich(StoreSession& store, bool live) : store_(store), live_(live) {}

    // False when no more is to be added: the store takes none, which is told, or the program was
    // interrupted while the store had no room.
    bool Add(const std::string& eventKey, const std::string& enrichment);
    // The last line, once the store is closed, and the value for the program's end. `isGood`:
    // nothing else went wrong.
    int Summarise(std::uint64_t rejected, bool isGood) const;

private:
    std::string MakeKey(const std::string& eventKey);

    StoreSession& store_;
    const bool live_;
    std::int64_t lastNumber_ = 0;  // microseconds since 1970
    std::uint64_t taken_ = 0;
    std::uint64_t refused_ = 0;
};

// In order within this run also where the clock stands still or goes back.
std::string Enrich::MakeKey(const std::string& eventKey) {
    using std::chrono::microseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    lastNumber_ =
        std::max(lastNumber_ + 1, std::int64_t{std::chrono::floor<microseconds>(now).count()});
    return eventKey + ZEL::TimedEnrichmentSuffix(lastNumber_, !live_);
}

// Through the silent queue also for live ones: it alone leads to the folder of the event's date.
bool Enrich::Add(const std::string& eventKey, const std::string& enrichment) {
    constexpr auto pause = std::chrono::milliseconds(5);
    const auto key = wm::ToValue(MakeKey(eventKey));
    const auto value = wm::ToValue(OnOneLine(enrichment));
    HRESULT result = hr::outOfMemory;
    // A full queue refuses: the same one is offered again until there is room.
    while (key && value && (result = store_->InsertSilent(key.Get(), value.Get())) == hr::fail) {
        if (Interrupted())
            return false;
        std::this_thread::sleep_for(pause);
    }
    (Succeeded(result) ? taken_ : refused_) += 1;
    if (Failed(result))
        Say("the store takes no more enrichments: " + Describe(static_cast<std::int32_t>(result)));
    return Succeeded(result);
}

int Enrich::Summarise(std::uint64_t rejected, bool isGood) const {
    const std::uint64_t lost = store_.Lost().enrichments;
    std::string text = std::to_string(taken_ - lost) + " enrichment(s) stored" +
                       (store_.Emptied() ? "" : " or still waiting");
    if (lost != 0)
        text += ", " + std::to_string(lost) + " lost";
    if (refused_ != 0)
        text += ", " + std::to_string(refused_) + " refused";
    if (rejected != 0)
        text += ", " + std::to_string(rejected) + " line(s) rejected";
    Say(text);
    if (Interrupted())
        return exitCode::interrupted;
    if (refused_ != 0)
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
    Enrich enrich(store, options.live);
    LineProblems problems(TellsAll());
    std::string key, enrichment;
    const auto take = [&](const std::string& line, const LinePlace& place) {
        const LineProblem problem = ReadLine(line, &key, &enrichment);
        if (problem.kind.empty())
            return enrich.Add(key, enrichment);
        problems.Add(place.Text(), problem);
        return true;
    };
    const LinesEnd end = ReadLines(options.key.empty() ? "-" : options.key, problems, take);
    problems.TellRest();
    const bool written = store.Close();
    return enrich.Summarise(problems.Count(), written && end != LinesEnd::unreadable);
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
    Enrich enrich(store, options.live);
    static_cast<void>(enrich.Add(options.key, enrichment));  // what failed is told and counted
    return enrich.Summarise(0, store.Close());
}

}  // namespace zel
