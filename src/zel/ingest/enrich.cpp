#include <cpprest/json.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <iterator>
#include <thread>
#include <unordered_map>

#include "common/textbridge.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/ingest/linereader.h"
#include "zel/query/jsonscan.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"
#include "zel/terminal/timearg.h"
#include "zelstore/keys/keyformat.h"

// Enrichments go to the folder of their event's date, live ones too: only there are they joined to
// events.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

// Why a text is no key of an event; empty when it is one.
std::string WhyNoEventKey(std::string_view key) {
    constexpr std::size_t dateLength = 10;
    const ZEL::KeyShape shape = ZEL::ShapeOf(key);
    if (shape == ZEL::KeyShape::receive)
        return "this is the key of a receive-time row, not of an event";
    if (shape == ZEL::KeyShape::none)
        return "an event's key begins with " + std::string(ZEL::eventKeyStart);
    const std::string date(ZEL::BeginTimeOf(key).substr(0, dateLength));
    const TimeArgument time = ParseTimeArgument(date, {});
    if (date.empty() || date[0] < '0' || date[0] > '9' || !time.ok)
        return "the key has no date";
    if (shape == ZEL::KeyShape::cutOff)
        return "the key is cut off: it has no sequence, object_type or action";
    if (shape == ZEL::KeyShape::enrichment)
        return "this is the key of an enrichment, not of an event";
    return "";
}

// One line of text with the same meaning: results are one a line.
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

    // False when the store has stopped to work.
    bool Add(const std::string& key, const std::string& enrichment);
    void AwaitNewSequences() const;
    std::uint64_t Stored() const noexcept { return stored_; }

private:
    using Clock = std::chrono::system_clock;

    static std::uint32_t Now();
    std::string MakeKey(const std::string& eventKey);

    StoreSession& store_;
    const bool live_;
    const std::uint32_t firstSequence_ = Now();
    std::unordered_map<std::string, std::uint32_t> perEvent_;
    std::uint32_t most_ = 0;
    std::uint64_t stored_ = 0;
};

// Hundredths of seconds, cut to the width of a sequence number.
std::uint32_t Enrich::Now() {
    using Ticks = std::chrono::duration<std::int64_t, std::centi>;
    return static_cast<std::uint32_t>(
        std::chrono::floor<Ticks>(Clock::now()).time_since_epoch().count());
}

// The store numbers enrichments anew in each process, so that the first of this run would take the
// place of the first of an earlier one. Numbers from the clock keep them apart, and in order.
std::string Enrich::MakeKey(const std::string& eventKey) {
    const std::uint32_t count = ++perEvent_[eventKey];
    most_ = std::max(most_, count);
    return eventKey + ZEL::FlaggedEnrichmentSuffix(firstSequence_ + count, !live_);
}

bool Enrich::Add(const std::string& eventKey, const std::string& enrichment) {
    constexpr auto pause = std::chrono::milliseconds(5);
    const auto key = wm::ToValue(MakeKey(eventKey));
    const auto value = wm::ToValue(OnOneLine(enrichment));
    HRESULT result = hr::outOfMemory;
    // A full queue refuses: the same one is offered again until there is room.
    while (key && value && (result = store_->InsertSilent(key.Get(), value.Get())) == hr::fail)
        std::this_thread::sleep_for(pause);
    if (Failed(result)) {
        Say("the store takes no more enrichments: " + Describe(static_cast<std::int32_t>(result)));
        return false;
    }
    ++stored_;
    return true;
}

// Several for one event use numbers ahead of the clock; the next run is to begin behind them.
void Enrich::AwaitNewSequences() const {
    constexpr auto tick = std::chrono::milliseconds(10);
    while (stored_ > 0 && !Interrupted() &&
           static_cast<std::int32_t>(Now() - (firstSequence_ + most_)) < 0)
        std::this_thread::sleep_for(tick);
}

std::string SyntaxProblem(std::string_view text, const JsonScan& scan) {
    const TextPlace place = PlaceOf(text, scan.ErrorAt());
    return "line " + std::to_string(place.line) + ", column " + std::to_string(place.column) +
           ": " + scan.Error() + "\n" + PointAt(place.lineText, place.byteInLine);
}

int Summarise(const Enrich& enrich, std::uint64_t rejected, bool works, bool written) {
    Say(std::to_string(enrich.Stored()) + " enrichment(s) stored" +
        (rejected != 0 ? ", " + std::to_string(rejected) + " line(s) rejected" : ""));
    if (Interrupted())
        return exitCode::interrupted;
    if (!works)
        return exitCode::noStore;
    return written && rejected == 0 ? exitCode::done : exitCode::losses;
}

// Takes the two members of a line out of it; why not, when it fails.
std::string ReadLine(const std::string& line, std::string* key, std::string* enrichment) {
    if (!wm::IsUtf8(line))
        return "not UTF-8";
    const JsonScan scan(line);
    if (!scan.Ok())
        return std::string("not JSON: ") + scan.Error() + "\n" + PointAt(line, scan.ErrorAt());
    const std::string_view rawKey = scan.Member("key");
    *enrichment = scan.Member("enrichment");
    if (rawKey.empty() || enrichment->empty())
        return R"(not of the form {"key":"...","enrichment":...})";
    if (rawKey.front() != '"')
        return "the key is no string";
    *key = web::json::value::parse(std::string(rawKey)).as_string();
    return WhyNoEventKey(*key);
}

// False when the store has stopped to work.
bool AddLines(const std::string& file, Enrich& enrich, std::uint64_t* rejected) {
    LineReader reader(file);
    const auto reject = [&](const std::string& why) {
        ++*rejected;
        Say((file == "-" ? "(stdin)" : file) + ":" + std::to_string(reader.LineNumber()) + ": " +
            why);
    };
    std::string line, key, enrichment;
    while (!Interrupted()) {
        const LineReader::Status status = reader.Next(&line);
        if (status == LineReader::Status::failed && !Interrupted())
            reject("can't be read: " + reader.Error());
        if (status == LineReader::Status::failed || status == LineReader::Status::end)
            break;
        if (status == LineReader::Status::tooLong) {
            reject("longer than 64 MiB");
            continue;
        }
        if (line.find_first_not_of(" \t\r") == line.npos)
            continue;
        const std::string why = ReadLine(line, &key, &enrichment);
        if (!why.empty())
            reject(why);
        else if (!enrich.Add(key, enrichment))
            return false;
    }
    return true;
}

int RunLines(const EnrichOptions& options) {
    if (!options.file.empty()) {
        Say("with --ndjson the keys stand in the file: enrich --ndjson [FILE]");
        return exitCode::usage;
    }
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::existing))
        return exitCode::noStore;
    Enrich enrich(store, options.live);
    std::uint64_t rejected = 0;
    const bool works = AddLines(options.key.empty() ? "-" : options.key, enrich, &rejected);
    const bool written = store.Close();
    enrich.AwaitNewSequences();
    return Summarise(enrich, rejected, works, written);
}

// The whole text of a file, packed or not; false, with a message, when it can't be read.
bool ReadWhole(const std::string& file, std::string* text) {
    LineReader reader(file);
    std::string line;
    LineReader::Status status = reader.Next(&line);
    for (; status == LineReader::Status::line; status = reader.Next(&line))
        *text += line + "\n";
    if (status == LineReader::Status::end || Interrupted())
        return !Interrupted();
    Say(file + ": " +
        (status == LineReader::Status::tooLong ? "longer than 64 MiB"
                                               : "can't be read: " + reader.Error()));
    return false;
}

bool ReadOne(const EnrichOptions& options, std::string* enrichment) {
    const std::string why = wm::IsUtf8(options.key) ? WhyNoEventKey(options.key) : "not UTF-8";
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
    const bool works = enrich.Add(options.key, enrichment);
    const bool written = store.Close();
    enrich.AwaitNewSequences();
    return Summarise(enrich, 0, works, written);
}

}  // namespace zel
