#pragma once

#include <cstdint>
#include <string>

#include "common/errorreport.h"
#include "common/trace.h"
#include "connection/sessionlistener.h"

namespace zel {

// Hears what the store and its services report and trace, and keeps the numbers below. Broken
// settings are always told to the listener, all else only when it wants to know. Lives as long as
// the process uses the store. Any thread. What is kept is kept for the process and not for the
// object: a session that opens later can ask for it, and a second object would count the same
// reports twice.
class StoreReports final : public wm::IErrorReportSink, public wm::ITraceSink {
public:
    StoreReports(ISessionListener& listener, bool tellsAll)
        : listener_(listener), tellsAll_(tellsAll) {}

    void OnReport(const wm::ErrorReport& report) override;
    bool Enabled(wm::TraceLevel level) const noexcept override {
        return level <= wm::TraceLevel::warning;
    }
    void OnTrace(const wm::TraceMessage& message) noexcept override;

private:
    ISessionListener& listener_;
    const bool tellsAll_;
};

// Records that the store had accepted and has lost since, as it reports them.
struct LostRecords {
    std::uint64_t events = 0;
    // Rows that name an event by the time of its receipt. The event itself may be stored.
    std::uint64_t receiveRows = 0;
    std::uint64_t enrichments = 0;

    friend LostRecords operator-(const LostRecords& now, const LostRecords& before) {
        return {now.events - before.events, now.receiveRows - before.receiveRows,
                now.enrichments - before.enrichments};
    }
};
// All of this process up to now. Never goes back, so what one session has lost is the difference of
// two calls.
LostRecords RecordsLost() noexcept;

// How many reads of this process met damaged data since this was last asked. The store's table of
// errors does not have them, so who tells that table tells this number beside it.
std::uint32_t TakeDamagedReads() noexcept;

// What the store last said of a record or a document that it did not understand, on this thread.
// Words that may follow "why:", never empty; the reason is forgotten with the call. Ask right
// behind the operation that failed: the next one on this thread puts its own in its place.
std::string TakeReason();

}  // namespace zel
