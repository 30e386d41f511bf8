#include "connection/storereports.h"

#include <atomic>
#include <charconv>
#include <utility>

#include "connection/resultwords.h"

// The store and its services report to one sink of the process, and their reports and traces are
// for those who look into a fault. Three kinds carry what a session needs and no interface tells:
// reads that met damage, records that were lost, and why a record or a document was not understood.
// They are kept here, for the whole process as the sink is; sessions work with differences.

namespace zel {

namespace {

std::atomic<std::uint32_t> damagedReads{0};
thread_local std::string reason;  // an operation traces on its caller's thread

struct LostNumber {
    const char* const name;
    std::atomic<std::uint64_t> count{0};
};
LostNumber lostEvents{wm::lostDetail::events};
LostNumber lostReceiveRows{wm::lostDetail::receipts};
LostNumber lostEnrichments{wm::lostDetail::enrichments};

// A report names only what it is about; numbers that it lacks or garbles count as 0.
void CountLost(const wm::ErrorReport& report) {
    for (const auto& [name, value] : report.Details())
        for (LostNumber* const number : {&lostEvents, &lostReceiveRows, &lostEnrichments}) {
            std::uint64_t count = 0;
            if (name == number->name)
                std::from_chars(value.data(), value.data() + value.size(), count);
            number->count += count;
        }
}

}  // namespace

// Counted first, and told after that: a listener that is slow must not make the numbers late.
void StoreReports::OnReport(const wm::ErrorReport& report) {
    if (report.Label() == wm::reportLabel::damagedData)
        ++damagedReads;
    if (report.Label() == wm::reportLabel::lostBatch)
        CountLost(report);
    const bool isSettings = report.Label() == "Settings";
    if (!tellsAll_ && !isSettings)
        return;
    std::string line = report.Label().empty() ? report.Where().function : report.Label();
    line += ": " + Describe(static_cast<std::int32_t>(report.Code()));
    for (const auto& [name, value] : report.Details())
        line.append(", ").append(name).append(": ").append(value);
    listener_.Say(line);
}

// Nothing milder than a warning comes here (Enabled).
void StoreReports::OnTrace(const wm::TraceMessage& message) noexcept {
    try {
        if (message.id.number == wm::message::operationThrew.number)
            reason = message.argument;
        if (!tellsAll_)
            return;
        std::string line = message.id.text;
        if (Failed(message.code))
            line += ": " + Describe(static_cast<std::int32_t>(message.code));
        if (!message.argument.empty())
            line.append(": ").append(message.argument);
        listener_.Say(line);
    } catch (...) {
        return;  // a trace message is not worth more
    }
}

LostRecords RecordsLost() noexcept {
    return {lostEvents.count, lostReceiveRows.count, lostEnrichments.count};
}

std::uint32_t TakeDamagedReads() noexcept {
    return damagedReads.exchange(0);
}

std::string TakeReason() {
    const std::string said = std::exchange(reason, "");
    // How the tables of names refuse what they don't hold.
    if (said == "invalid map<K, T> key")
        return "an object type, action or operator that is not known";
    return said.empty() ? "not understood" : said;
}

}  // namespace zel
