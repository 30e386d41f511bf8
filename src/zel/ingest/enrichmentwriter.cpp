#include "zel/ingest/enrichmentwriter.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "zel/terminal/messages.h"
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

}  // namespace

// In order within this run also where the clock stands still or goes back.
std::string EnrichmentWriter::MakeKey(const std::string& eventKey) {
    using std::chrono::microseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    lastNumber_ =
        std::max(lastNumber_ + 1, std::int64_t{std::chrono::floor<microseconds>(now).count()});
    return eventKey + ZEL::TimedEnrichmentSuffix(lastNumber_, !live_);
}

// Through the silent queue also for live ones: it alone leads to the folder of the event's date.
bool EnrichmentWriter::Add(const std::string& eventKey, std::string_view enrichment) {
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

}  // namespace zel
