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
//
// The thread sleeps until the earliest time at which a job falls due, or until it is woken for a
// change. Runs have threads of their own, so a long run delays no other job; a status callback that
// does not return delays all of them.
//
// May be used by any thread.
class Jobs final : public Job::IListener {
public:
    // Made at its first use, with the jobs that every manager has.
    static Jobs& Instance();

    // Null when there is no such job.
    ZEL::CountedPtr<Job> Find(const ZEL::GUID& id) EXCLUDES(lock_);
    // Null when memory runs out. A job that is there already keeps its name. May throw when memory
    // runs out.
    ZEL::CountedPtr<Job> FindOrMake(const ZEL::GUID& id, const wchar_t* name) EXCLUDES(lock_);
    // In the order of identifiers.
    std::vector<ZEL::CountedPtr<Job>> All() EXCLUDES(lock_);
    // Null for none. Changes that were not told yet go to the new one.
    void SetCallback(wmJobMgr::IStatusCallback* callback) EXCLUDES(lock_);

    // Both are called by jobs, on any thread and without their locks.
    void OnStatus(const ZEL::GUID& id, std::int32_t status) override;
    void OnScheduleChanged() override;

private:
    // The status is kept with the change: by the time it is told the job may have another one.
    struct Change {
        ZEL::GUID id;
        std::int32_t status;
    };

    friend class wm::NeverDestroyed<Jobs>;
    Jobs();
    // Makes the thread when it does not run. False, with a trace, when the system gives none.
    bool EnsureThread() EXCLUDES(lock_);
    // Ends only when waiting fails; the next change then makes the thread anew.
    ZEL::HRESULT ThreadMain();
    // Until there are none, also those that come meanwhile.
    void TellChanges() EXCLUDES(lock_);
    void Tell(const Change& change) EXCLUDES(lock_);
    std::uint32_t RunDueJobs() EXCLUDES(lock_);

    // Taken ahead of a job's own lock by nobody: both have the same rank.
    wm::Lock lock_{wm::LockRank::job};
    std::map<ZEL::GUID, ZEL::CountedPtr<Job>> jobs_ GUARDED_BY(lock_);
    ZEL::CountedPtr<wmJobMgr::IStatusCallback> callback_ GUARDED_BY(lock_);
    std::deque<Change> changes_ GUARDED_BY(lock_);
    // Automatic: one setting is one more look at everything.
    wm::EventObject wake_;
    wm::WorkerThread thread_;
};

}  // namespace wmjobmgr
