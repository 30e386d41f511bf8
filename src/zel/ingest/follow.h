#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/jobmanager.h"
#include "connection/storesession.h"
#include "zel/ingest/followposition.h"
#include "zel/ingest/storefailures.h"
#include "zel/terminal/output.h"

namespace zel {

// Prints events as their receive-time rows reach the disk. The source tells how, and what is
// printed twice or waits when something breaks.
//
// Runs come on the job's thread, Drain may be called by any. Lives until the process ends, since a
// run may come late; such a run finds the follower closed.
class Follower {
public:
    // Without a file following begins with the rows that come from now on. Null, with a message,
    // when the job can't be had, the position can't be read or kept, or what former processes left
    // can't be printed. `output` is the follower's until Close. Prints what former processes left
    // before it returns, so this may take long. The caller closes the follower and never deletes
    // it: the job holds on to it.
    static Follower* Start(StoreSession& store, const std::string& positionFile, Output& output);

    // The key for the next row: a fresh one, or when the clock has been set back the next behind
    // the last. Empty, with a message, when none can be made. Never waits for a run. Keys grow from
    // call to call, whatever the clock does, as the position would otherwise pass rows over. Any
    // thread. A key that comes to no row makes AwaitAll wait to its limit.
    std::string NextKey();

    // Reads and prints what is on the disk by now, if anything may be missing. False when that is
    // not possible any more: the reader of the output went away or stalls beyond an interrupt, or
    // the position can't be kept. That there is nothing to print, or that the follower is closed,
    // is no failure.
    bool Drain();
    // Waits for all rows that got a key here to be printed. An interrupt ends the wait: what is
    // left is the next process's, which is as it should be. False when rows are missing for another
    // reason. Gives up, with a message, when nothing more has come for 30 seconds.
    bool AwaitAll();
    // No run reaches the store any more. What one that runs has not printed stays for the next
    // process. Waits for a run that is under way, which is asked to end. May be called again.
    // `output` and `store` may go after it.
    void Close();
    // By this process alone.
    std::uint64_t Printed();
    StoreFailures& Failures() noexcept { return failures_; }

private:
    class Printer;

    Follower(StoreSession& store, const std::string& positionFile, Output& output);
    // The steps of Start; each tells its own failure.
    bool Register();
    bool Schedule();
    bool LoadPosition();
    // By the store itself, so that the form is that of all its keys.
    bool MakeFreshKey(FollowPosition* fresh);
    // Both with mutex_ held.
    bool DrainLocked();
    bool MayLackLocked();
    // What one step of AwaitAll has come to: `some` begins the waiting time anew, the last two end
    // it.
    enum class Progress { none, some, done, broken };
    Progress AwaitStep(FollowPosition* reached, bool* sawAll);

    StoreSession& store_;
    StoreFailures failures_;
    PositionFile positionFile_;
    wm::EventObject stop_;
    ZEL::CountedPtr<ZEL::IJobManager> manager_;

    // Held for a whole run: runs and drains exclude each other.
    std::mutex mutex_;
    Output& output_;
    FollowPosition position_;
    bool closed_ = false;
    bool works_ = true;      // events can be printed, and the position be kept
    bool cutShort_ = false;  // they can't, since an interrupt ended the wait for the reader
    bool complete_ = false;  // the last drain met no obstacle
    ZEL::HRESULT lastResult_ = ZEL::hr::ok;
    std::uint64_t printed_ = 0;
    std::atomic<bool> closing_{false};

    std::mutex keysMutex_;  // taken inside mutex_, never around it
    FollowPosition lastKey_;
    bool hasGivenKeys_ = false;
};

}  // namespace zel
