#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "agent/agentlog.h"
#include "agent/spool.h"
#include "common/countedptr.h"
#include "connection/storesession.h"

namespace zel {

// Carries records from the spool into the store, and drops them there once the store has them on
// the disk. Any thread.
class Feeder {
public:
    // All outlive this; the store is open. `directory` is the store's.
    // `onSettled` is called behind each drop, with how many of what was dropped are lost.
    Feeder(Spool& spool, StoreSession& store, AgentLog& log, std::string directory,
           std::function<void(std::uint64_t lost)> onSettled);
    ~Feeder();
    Feeder(const Feeder&) = delete;
    Feeder& operator=(const Feeder&) = delete;

    // False, with a message, when the store does not tell how far it has come.
    bool Start();
    // The spool has more.
    void Wake();
    // Ends the thread once the spool is empty, or after that time. The store may be closed then.
    void Stop(std::chrono::seconds longest);
    // Once the store is closed, which has written all that it was given: drops that. False when
    // something was lost; it stays in the spool.
    bool Settle();

    // Whether all that an earlier process has left behind is in the store's hands.
    bool HasReplayed() const noexcept { return hasReplayed_; }
    // Since when the thread has given no sign of life, in milliseconds.
    std::uint64_t SilentMs() const noexcept;
    // Whether the store loses what it is given, so that it is given again and again.
    bool StoreFails() const noexcept { return storeFails_; }
    std::uint64_t LastFlushTick() const noexcept { return lastFlush_; }

private:
    // A row whose last record was given to the store as its so-many-th.
    struct Given {
        std::int64_t row = 0;
        std::uint64_t records = 0;
        std::uint64_t lost = 0;  // of the row, for good
        std::string lastKey;     // receive-time
    };
    // How far events have come, or enrichments.
    struct Lane {
        SpoolKind kind = SpoolKind::events;
        std::int64_t at = 0;      // the last row that was given
        std::uint64_t given = 0;  // records and receive-time rows that the store's queue took
        std::deque<Given> pending{};
        std::int64_t replayUntil = 0;
    };
    // Rows of which the store has all.
    struct Settled {
        std::size_t rows = 0;
        SettledPart part{};
    };

    void Main();
    bool AwaitMore();
    bool HasLost() const;
    bool GiveNext(Lane& lane);
    bool Give(Lane& lane, const SpooledRow& row);
    bool GiveRecord(Lane& lane, const SpooledRow::Record& record, bool* isRefused);
    // False when the wait was ended.
    bool Insert(Lane& lane, std::string_view key, std::string_view value, bool* isRefused);
    void DropSettled(bool isLast);
    static Settled SettledOf(const Lane& lane, std::uint64_t settled);
    void TakeLosses();
    void GiveAgain();
    bool Drop(Settled& events, const Settled& enrichments);
    void LookAtReplay();
    bool MayGoOn();
    std::string NewestFolder() const;

    Spool& spool_;
    StoreSession& store_;
    AgentLog& log_;
    const std::string directory_;
    const std::function<void(std::uint64_t lost)> onSettled_;
    int descriptor_ = -1;  // of the directory, for syncs
    ZEL::CountedPtr<ZEL::IWriteProgress> progress_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool hasMore_ = true;
    bool stopping_ = false;
    std::chrono::steady_clock::time_point stopAt_;
    std::thread thread_;

    // Of the thread, and of Settle after it.
    Lane events_{SpoolKind::events}, enrichments_{SpoolKind::enrichments};
    LostRecords lostBefore_;
    std::uint64_t round_ = 0;      // one more each time that rows are given again
    std::uint32_t badRounds_ = 0;  // in which nothing but enrichments was lost
    std::chrono::steady_clock::time_point nextDrop_;

    std::atomic<bool> hasReplayed_{false};
    std::atomic<bool> storeFails_{false};
    std::atomic<std::uint64_t> sign_{0};
    std::atomic<std::uint64_t> lastFlush_{0};
};

}  // namespace zel
