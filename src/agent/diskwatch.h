#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "agent/notices.h"
#include "agent/parts.h"
#include "connection/storesession.h"

namespace zel {

// Keeps the store within its size and the volumes from filling up. Any thread.
class DiskWatch {
public:
    // All outlive this; the store is open.
    // `purging` is held while folders go and are counted.
    DiskWatch(const LiveConfig& config, StoreSession& store, Spool& spool, std::mutex& purging,
              Admission& admission, Notices& notices, AgentLog& log, DiskSight& sight);

    // To be called about once a second: looks at the free space, and at times at the size of the
    // store, which then may be purged; that takes as long as the deleting.
    void Look();
    // The next look is at the size as well.
    void LookAtSizeSoon();
    // Purges to that limit, in units of 0x100000 bytes; what goes is told and counted as any other.
    ZEL::HRESULT PurgeTo(std::uint32_t megabytes);

private:
    struct Sizes {
        std::uint64_t bytes = 0;
        std::vector<std::string> folders;
    };

    void LookAtVolumes();
    void LookAtSize();
    Sizes Measure() const;
    // Those of the store's folders that are not there any more.
    std::vector<std::string> Gone(const std::vector<std::string>& folders) const;
    ZEL::HRESULT Purge(const Sizes& before, std::uint32_t megabytes);
    // Folders that are not there any more are counted as purged, and told.
    void NoteGone(const std::vector<std::string>& folders, std::string_view why);

    std::mutex mutex_;  // around all
    const LiveConfig& config_;
    StoreSession& store_;
    Spool& spool_;
    std::mutex& purging_;  // inside the other
    Admission& admission_;
    Notices& notices_;
    AgentLog& log_;
    DiskSight& sight_;
    std::uint64_t nextSize_ = 0;  // in ticks
    bool isStopped_ = false;
};

}  // namespace zel
