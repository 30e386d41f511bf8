#pragma once

#include <deque>
#include <map>
#include <vector>

#include "common/neverdestroyed.h"
#include "job.h"

namespace wmjobmgr {

// The jobs of the process, and the one thread that starts those that fall due and tells their
// changes of status, in the order in which they happened. The thread is made when there is
// something to do for it. Never destroyed: jobs may run until the process ends.
class Jobs final : public Job::IListener {
public:
    static Jobs& Instance();

    // Null when there is no such job.
    ZEL::CountedPtr<Job> Find(const ZEL::GUID& id) EXCLUDES(lock_);
    // Null when memory runs out.
    ZEL::CountedPtr<Job> FindOrMake(const ZEL::GUID& id, const wchar_t* name) EXCLUDES(lock_);
    std::vector<ZEL::CountedPtr<Job>> All() EXCLUDES(lock_);
    void SetCallback(wmJobMgr::IStatusCallback* callback) EXCLUDES(lock_);

    void OnStatus(const ZEL::GUID& id, std::int32_t status) override;
    void OnScheduleChanged() override;

private:
    struct Change {
        ZEL::GUID id;
        std::int32_t status;
    };

    friend class wm::NeverDestroyed<Jobs>;
    Jobs();
    bool EnsureThread() EXCLUDES(lock_);
    ZEL::HRESULT ThreadMain();
    void TellChanges() EXCLUDES(lock_);
    void Tell(const Change& change) EXCLUDES(lock_);
    std::uint32_t RunDueJobs() EXCLUDES(lock_);

    // Taken ahead of a job's own lock by nobody: both have the same rank.
    wm::Lock lock_{wm::LockRank::job};
    std::map<ZEL::GUID, ZEL::CountedPtr<Job>> jobs_ GUARDED_BY(lock_);
    ZEL::CountedPtr<wmJobMgr::IStatusCallback> callback_ GUARDED_BY(lock_);
    std::deque<Change> changes_ GUARDED_BY(lock_);
    wm::EventObject wake_;
    wm::WorkerThread thread_;
};

}  // namespace wmjobmgr
