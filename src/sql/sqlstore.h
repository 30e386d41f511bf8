#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/lock.h"
#include "connection/storesession.h"

namespace zel {

// The store that tables are read from, open for reading alone. Any thread.
//
// A process has one store and lists its folders once, so all tables of a process share one, and
// those of another directory are refused.
class SqlStore {
public:
    // Opens the store in `directory`, or the fleet that is used in its place; what is open already
    // is given again. The first call decides who hears what people should know of. Null, with one
    // message in `problem`, when it can't be opened, or another directory's is open.
    static std::shared_ptr<SqlStore> Open(const std::string& directory, ISessionListener& listener,
                                          std::string* problem);

    explicit SqlStore(std::string directory, ISessionListener& listener)
        : directory_(std::move(directory)), session_(listener) {}
    SqlStore(const SqlStore&) = delete;
    SqlStore& operator=(const SqlStore&) = delete;

    const std::string& Directory() const noexcept { return directory_; }
    ZEL::IEventStore7& Store() const noexcept { return *session_; }

    // Whether all events lie in one folder, so that a walk gives them in the order of their times.
    // Holds as long as the store is open: later folders are not seen.
    bool IsOneFolder();

    // Takes over what the store says has failed. To be called behind each walk.
    void NoteFailures() noexcept;
    // To be called ahead of the stop of a walk and when it has ended. The store counts a stop as a
    // failure to read, which is dropped.
    void BeginStop() noexcept;
    void EndStop() noexcept;
    // A walk had more events than can be remembered, so that some may have come again.
    void NoteRepeats() noexcept { mayRepeat_ = true; }
    bool MayRepeat() const noexcept { return mayRepeat_; }
    // All failures since the store was opened, by folder.
    std::vector<DatabaseError> Failures() const;
    // Reads that met damaged data, which the failures do not have.
    std::uint32_t DamagedReads() const;

private:
    void TakeFailures(bool keepsReads) REQUIRES(lock_);
    void Keep(const DatabaseError& failure) REQUIRES(lock_);

    const std::string directory_;
    StoreSession session_;
    std::atomic<bool> mayRepeat_{false};
    // Held while the store is asked for its failures.
    mutable wm::Lock lock_{wm::LockRank::monitorDelivery};
    std::optional<bool> isOneFolder_ GUARDED_BY(lock_);
    int stops_ GUARDED_BY(lock_) = 0;  // that are under way
    std::vector<DatabaseError> failures_ GUARDED_BY(lock_);
    std::uint32_t damagedReads_ GUARDED_BY(lock_) = 0;
};

}  // namespace zel
