#pragma once

#include <array>
#include <condition_variable>
#include <list>
#include <memory>
#include <string>

#include "common/lock.h"
#include "common/result.h"
#include "common/workerthread.h"
#include "zelstore/database/leveldbinstance.h"
#include "zelstore/database/leveldbinstanceproxy.h"

namespace ZEL {

// A database as a walk begins there, or why there is none. The place goes ahead of the instance.
struct OpenedFolder {
    HRESULT result = hr::fail;
    std::shared_ptr<LevelDbInstance> instance;
    std::shared_ptr<LevelDbInstance::Place> place;
};

// Opens databases ahead of one scan, seeks in them, and closes them behind it, on threads of the
// store: at most 8 in the process, all scans together. Opening waits for the disk far longer than
// it computes.
//
// All operations belong to the scan's thread. The destructor closes what was not taken and waits
// for the threads, none of which calls anything but the database and the host's services.
class FoldersAhead {
public:
    static constexpr std::size_t mostThreads = 8;

    // For walks from `startKey` on.
    explicit FoldersAhead(std::string startKey) : startKey_(std::move(startKey)) {}
    ~FoldersAhead();
    FoldersAhead(const FoldersAhead&) = delete;
    FoldersAhead& operator=(const FoldersAhead&) = delete;

    // Begins to open a folder. False when the scan has no thread and gets none.
    bool Begin(std::shared_ptr<LevelDbInstanceProxy> proxy);
    // What became of a folder that was begun; waits for it. To be asked once, in their order.
    OpenedFolder Take();
    // Closes what a walk is done with; on this thread when the others are behind.
    void Close(OpenedFolder folder);

    // The same without another thread.
    static OpenedFolder OpenHere(LevelDbInstanceProxy& proxy, const std::string& startKey) noexcept;

private:
    struct Job {
        std::shared_ptr<LevelDbInstanceProxy> proxy;
        enum { waiting, underWay, done } state = waiting;
        OpenedFolder folder;
    };

    bool StartThread();
    HRESULT Work();
    // Does one thing that is to be done, without the lock. False when there is nothing.
    bool WorkOnce();
    Job* NextLocked() REQUIRES(lock_);

    const std::string startKey_;
    std::array<wm::WorkerThread, mostThreads> threads_;
    std::size_t started_ = 0;
    wm::Lock lock_;
    std::condition_variable_any changed_;
    std::list<Job> jobs_ GUARDED_BY(lock_);
    std::list<OpenedFolder> closing_ GUARDED_BY(lock_);
    bool isEnding_ GUARDED_BY(lock_) = false;
};

}  // namespace ZEL
