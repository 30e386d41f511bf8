#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/following/pastreader.h"
#include "connection/sessionlistener.h"
#include "fleet/sending/batchmaker.h"

namespace zel::fleet {

// Sends the events of a store of this process in the order of their receipt. For one thread.
class EventSending {
public:
    struct Parts {
        ZEL::IEventStore7& store;
        IFollowPast& past;
        RowDelivery& delivery;
        ISessionListener& listener;
    };
    // All parts outlive this. It begins at a place, as following has them; `isFirst`: nothing was
    // ever sent.
    EventSending(const Parts& parts, std::string host, const BatchLimits& limits, std::string place,
                 bool isFirst, int rowsOfStep);

    // Sends what is there and waits until the fleet has it. Rows that came later than `safeUntil`,
    // a time as keys have it, are sent and don't move the place: one ahead of them may still come.
    // Empty: all of them do. False when the delivery has ended.
    bool Round(const std::string& safeUntil);
    // The last round has met a folder that can't be read, and will try it again.
    bool HasUnread() const noexcept { return !unread_.empty(); }
    // Makes the round in hand end soon. Any thread.
    void End() noexcept { reader_.End(); }

private:
    bool Take(const PastReader::Row& row, const std::string& safeUntil);
    void TakeGap(std::uint64_t purged, std::string_view place);
    bool ReadOn(const std::string& safeUntil, bool* isWhole);
    void TellUnread(const std::string& folder);

    const Parts parts_;
    const std::string host_;
    PastReader reader_;
    BatchMaker maker_;
    std::string place_;  // where reading goes on
    std::string safe_;   // behind the last row that none can overtake
    bool isFirst_;
    std::string lastTime_;
    std::uint64_t lastMs_ = 0;  // of it
    std::string unread_;
    int tries_ = 0;  // in vain, of a folder that can't be read
};

}  // namespace zel::fleet
