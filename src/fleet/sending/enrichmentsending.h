#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "connection/sessionlistener.h"
#include "fleet/sending/batchmaker.h"

namespace zel::fleet {

// Sends what was added to events later. It has no rows by time of receipt, so its folders are
// looked at: one that has changed since the fleet had all of it is read, beside whoever writes it,
// and what is new in it is sent. For one thread.
class EnrichmentSending {
public:
    // `folders`: those of the state. All else outlives this.
    EnrichmentSending(std::string directory, std::string host, const BatchLimits& limits,
                      std::map<std::string, std::string> folders, RowDelivery& delivery,
                      ISessionListener& listener);

    // Sends what has changed and waits until the fleet has it. False when the delivery has ended.
    bool Round();
    // Folders that could not be read in the last round; they were told.
    unsigned Unread() const noexcept { return unread_; }

private:
    bool SendFolder(const std::string& name, const std::string& look, std::int64_t now);
    bool TakeRow(std::string_view key, std::string_view text, std::int64_t since,
                 std::uint64_t sentMs);

    const std::string directory_, host_;
    std::map<std::string, std::string> folders_;
    RowDelivery& delivery_;
    ISessionListener& listener_;
    BatchMaker maker_;
    unsigned unread_ = 0;
};

}  // namespace zel::fleet
