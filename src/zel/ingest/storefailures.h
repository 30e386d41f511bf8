#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "connection/storesession.h"

namespace zel {

// What the store's table of errors says to who reads rows in order and must pass none over. The
// table is looked at and left as it is: emptying it could lose an entry that comes meanwhile. What
// is new is told, each kind of failure of a folder once. For any thread.
class StoreFailures {
public:
    explicit StoreFailures(StoreSession& store) : store_(store) {}

    // Takes in what is new.
    void Look();
    // Failures of reads that may succeed later, as far as they were looked at: too many open files,
    // or the folder is in use. Who meets one has seen only a part of the rows.
    std::uint64_t Obstacles() const;
    // Failures of reads that stay.
    std::uint64_t Unreadable() const;
    bool WritesFailed() const;

    // While results are refused the store counts that as failures of the folders that it reads.
    void SetRefusing(bool refusing);
    // To be called once no more is read. Empties the table unless writes have failed, so that what
    // was overcome does not count at the end.
    void Settle();

private:
    void TakeIn(const DatabaseError& error, const std::vector<DatabaseError>& former);
    void Tell(const DatabaseError& error, const char* consequence);

    StoreSession& store_;
    mutable std::mutex mutex_;
    std::map<std::string, std::vector<DatabaseError>> seen_;  // by folder
    std::set<std::string> told_;
    std::uint64_t obstacles_ = 0;
    std::uint64_t unreadable_ = 0;
    bool writesFailed_ = false;
    bool refusing_ = false;
};

}  // namespace zel
