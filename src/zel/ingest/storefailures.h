#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "connection/storesession.h"

namespace zel {

// Reads the store's table of errors for somebody who reads rows in order and must not pass any
// over, and sorts what is in it: is it a reason to wait, or damage that no waiting mends?
//
// The table is looked at and left as it is, since to clear it could lose an entry that comes just
// then. So an entry counts when it is new or has changed since the last look. Each kind of failure
// of a folder is told once. For any thread.
class StoreFailures {
public:
    explicit StoreFailures(StoreSession& store) : store_(store) {}

    // Takes in what has changed. The numbers below are those of the last look, and only grow. A
    // table that can't be read counts as an obstacle: it might hold one.
    void Look();
    // Failures to read that may be gone at the next try: the folder is in use, or no descriptor or
    // memory was left. A reader for whom this number grows has seen only a part of the rows.
    std::uint64_t Obstacles() const;
    // Failures to read that will not pass. The rows behind them are passed over, since to wait
    // would hold up all others for good.
    std::uint64_t Unreadable() const;
    // Whether there was any failure but to read, which may have cost records; never turns back to
    // false.
    bool WritesFailed() const;

    // A query callback that refuses a batch fails the read of the folder in hand. Between
    // SetRefusing(true) and SetRefusing(false), which looks once more, such failures are the
    // caller's own and don't count. Calls do not nest.
    void SetRefusing(bool refusing);
    // For the end, once no more is read: looks once more, and clears the table unless writes have
    // failed. So an obstacle that was overcome is no failure of the whole run. A failure of writing
    // stays in the table, so that the end of the session tells it.
    void Settle();

private:
    void TakeIn(const DatabaseError& error, const std::vector<DatabaseError>& former);
    bool IsOfOwnMaking(const DatabaseError& error) const;
    void Tell(const DatabaseError& error, const char* consequence);

    StoreSession& store_;
    mutable std::mutex mutex_;
    // The table as it was at the last look.
    std::map<std::string, std::vector<DatabaseError>> seen_;  // by folder
    std::set<std::string> told_;
    std::uint64_t obstacles_ = 0;
    std::uint64_t unreadable_ = 0;
    bool writesFailed_ = false;
    bool refusing_ = false;
};

}  // namespace zel
