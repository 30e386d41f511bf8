#include "zelstore/database/foldersahead.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "common/boundary.h"

// One list of folders to open, in the order of the walk, and one of folders to close. Threads take
// from both, closing first, so that what is open at once stays bounded. Each scan has threads of
// its own, which end with it: the number for the whole process is a budget that scans draw from.

namespace ZEL {

namespace {

std::atomic<std::size_t> threadsOfAll{0};

bool TakeThread() noexcept {
    if (threadsOfAll.fetch_add(1, std::memory_order_relaxed) < FoldersAhead::mostThreads)
        return true;
    threadsOfAll.fetch_sub(1, std::memory_order_relaxed);
    return false;
}

}  // namespace

FoldersAhead::~FoldersAhead() {
    {
        const wm::Hold hold(lock_);
        isEnding_ = true;
        jobs_.remove_if([](const Job& job) { return job.state == Job::waiting; });
    }
    changed_.notify_all();
    for (std::size_t i = 0; i < started_; ++i)
        threads_[i].Wait();
    threadsOfAll.fetch_sub(started_, std::memory_order_relaxed);
}

bool FoldersAhead::StartThread() {
    if (started_ == mostThreads || !TakeThread())
        return false;
    if (!threads_[started_].Start([this] { return Work(); })) {
        threadsOfAll.fetch_sub(1, std::memory_order_relaxed);
        return false;
    }
    threads_[started_++].SetName("ZEL Folders");
    return true;
}

bool FoldersAhead::Begin(std::shared_ptr<LevelDbInstanceProxy> proxy) {
    std::size_t open = 0;
    {
        const wm::Hold hold(lock_);
        open = jobs_.size();
    }
    if (open >= started_ && !StartThread() && started_ == 0)
        return false;
    {
        const wm::Hold hold(lock_);
        jobs_.push_back({std::move(proxy), Job::waiting, {}});
    }
    changed_.notify_all();
    return true;
}

namespace {

// The lock of a scope, left while a condition is waited for.
struct LeftMeanwhile {
    wm::Lock& held;
    void lock() NO_THREAD_SAFETY_ANALYSIS { held.Acquire(); }
    void unlock() NO_THREAD_SAFETY_ANALYSIS { held.Release(); }
};

}  // namespace

OpenedFolder FoldersAhead::Take() NO_THREAD_SAFETY_ANALYSIS {
    const wm::Hold hold(lock_);
    LeftMeanwhile left{lock_};
    while (jobs_.front().state != Job::done)
        changed_.wait(left);
    OpenedFolder folder = std::move(jobs_.front().folder);
    jobs_.pop_front();
    return folder;
}

void FoldersAhead::Close(OpenedFolder folder) {
    if (!folder.instance || started_ == 0)
        return;
    {
        const wm::Hold hold(lock_);
        if (closing_.size() >= mostThreads)
            return;
        closing_.push_back(std::move(folder));
    }
    changed_.notify_all();
}

OpenedFolder FoldersAhead::OpenHere(LevelDbInstanceProxy& proxy,
                                    const std::string& startKey) noexcept {
    OpenedFolder folder;
    folder.result = AtBoundary([&] {
        const HRESULT result = proxy.GetInstance(&folder.instance, IfMissing::fail);
        if (Succeeded(result) && !startKey.empty())
            folder.place = folder.instance->Seek(startKey);
        return result;
    });
    return folder;
}

FoldersAhead::Job* FoldersAhead::NextLocked() {
    const auto job = std::find_if(jobs_.begin(), jobs_.end(),
                                  [](const Job& each) { return each.state == Job::waiting; });
    return job != jobs_.end() ? &*job : nullptr;
}

bool FoldersAhead::WorkOnce() {
    std::list<OpenedFolder> closing;
    Job* job = nullptr;
    {
        const wm::Hold hold(lock_);
        if (!closing_.empty())
            closing.splice(closing.begin(), closing_, closing_.begin());
        else if ((job = NextLocked()) != nullptr)
            job->state = Job::underWay;
    }
    if (job == nullptr)
        return !closing.empty();
    OpenedFolder folder = OpenHere(*job->proxy, startKey_);
    {
        const wm::Hold hold(lock_);
        job->folder = std::move(folder);
        job->state = Job::done;
    }
    changed_.notify_all();
    return true;
}

HRESULT FoldersAhead::Work() NO_THREAD_SAFETY_ANALYSIS {
    for (;;) {
        while (WorkOnce()) {
        }
        const wm::Hold hold(lock_);
        LeftMeanwhile left{lock_};
        while (closing_.empty() && NextLocked() == nullptr) {
            if (isEnding_)
                return hr::ok;
            changed_.wait(left);
        }
    }
}

}  // namespace ZEL
