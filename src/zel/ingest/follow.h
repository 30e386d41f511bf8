#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <tuple>

#include "common/jobmanager.h"
#include "connection/storesession.h"
#include "zel/ingest/storefailures.h"
#include "zel/terminal/output.h"

namespace zel {

// A place in the order of receive-time rows: behind the row of this time and number.
struct FollowPosition {
    std::string time;  // of a receive-time row, 24 characters
    std::uint32_t sequence = 0;
    friend bool operator<(const FollowPosition& a, const FollowPosition& b) {
        return std::tie(a.time, a.sequence) < std::tie(b.time, b.sequence);
    }
};

// The place of a row by its key r<receive_time>T<sequence>N. False for another key.
bool PositionOfKey(const std::string& key, FollowPosition* position);
std::string KeyOfPosition(const FollowPosition& position);

// Prints events as their receive-time rows reach the disk: it is what the store's job does. Each
// run reads the rows behind the position that the former one reached, prints the events and puts
// the new position into a file, so that a later process goes on there. Printed and then noted: a
// process that is killed in between prints its last batch again, one that ends in order prints
// nothing twice. Rows that can't be read for now keep those behind them waiting.
//
// Runs come on the job's thread, Drain may be called by any. Lives until the process ends, since a
// run may come late; such a run finds the follower closed.
class Follower {
public:
    // Without a file following begins with the rows that come from now on. Null, with a message,
    // when the job can't be had, the position can't be read or kept, or what former processes left
    // can't be printed. `output` is the follower's until Close.
    static Follower* Start(StoreSession& store, const std::string& positionFile, Output& output);

    // The key for the next row: a fresh one, or when the clock has been set back the next behind
    // the last. Empty, with a message, when none can be made. Never waits for a run.
    std::string NextKey();

    // Reads and prints what is on the disk by now, if anything may be missing. False when that is
    // not possible any more: the reader of the output went away or stalls beyond an interrupt, or
    // the position can't be kept.
    bool Drain();
    // Waits for all rows that got a key here to be printed. False when rows are missing.
    bool AwaitAll();
    // No run reaches the store any more. What one that runs has not printed stays for the next
    // process.
    void Close();
    std::uint64_t Printed();
    StoreFailures& Failures() noexcept { return failures_; }

private:
    class Printer;

    Follower(StoreSession& store, std::string positionFile, Output& output);
    bool Register();
    bool Schedule();
    bool LoadPosition();
    bool SavePosition();
    bool DrainLocked();
    bool MayLackLocked();

    StoreSession& store_;
    StoreFailures failures_;
    const std::string positionFile_;
    std::wstring widePositionFile_;
    wm::EventObject stop_;
    ZEL::CountedPtr<ZEL::IJobManager> manager_;

    // Held for a whole run: runs and drains exclude each other.
    std::mutex mutex_;
    Output& output_;
    FollowPosition position_;
    bool closed_ = false;
    bool works_ = true;
    bool complete_ = false;  // the last drain met no obstacle
    ZEL::HRESULT lastResult_ = ZEL::hr::ok;
    std::uint64_t printed_ = 0;
    std::atomic<bool> closing_{false};

    std::mutex keysMutex_;  // behind mutex_
    FollowPosition lastKey_;
    bool hasGivenKeys_ = false;
};

}  // namespace zel
