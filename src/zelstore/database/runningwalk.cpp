#include "zelstore/database/runningwalk.h"

#include <vector>

#include "common/lock.h"
#include "common/neverdestroyed.h"
#include "zelstore/database/endwatch.h"

// Each walk has an abort event of its own: one event for all would wake one of several paused
// walks, and would wait for the next walk where none runs.

namespace ZEL {

struct RunningWalk::UnderWay {
    static UnderWay& OfProcess() {
        static wm::NeverDestroyed<UnderWay> walks;
        return *walks;
    }
    wm::Lock lock;
    std::vector<RunningWalk*> all GUARDED_BY(lock);
};

RunningWalk::RunningWalk(HANDLE stopEvent, HANDLE pauseEvent)
    : stopEvent_(stopEvent),
      pauseEvent_(pauseEvent),
      isReady_(abortEvent_.Create(wm::EventReset::automatic)) {
    UnderWay& walks = UnderWay::OfProcess();
    const wm::Hold hold(walks.lock);
    walks.all.push_back(this);
}

RunningWalk::~RunningWalk() {
    UnderWay& walks = UnderWay::OfProcess();
    const wm::Hold hold(walks.lock);
    std::erase(walks.all, this);
}

void RunningWalk::AbortAll() noexcept {
    UnderWay& walks = UnderWay::OfProcess();
    const wm::Hold hold(walks.lock);
    for (RunningWalk* const walk : walks.all)
        walk->abortEvent_.Set();
}

bool RunningWalk::Look() noexcept {
    constexpr std::uint32_t stopped = 1, resumed = 2;  // by the order of the handles
    EndWatch* const watch = EndWatch::OfThread();
    if (watch != nullptr && watch->EndsWalk())
        return false;
    const HANDLE handles[] = {abortEvent_.Handle(), stopEvent_, pauseEvent_};
    const bool mayPause = pauseEvent_ != nullptr;
    const std::uint32_t first =
        wm::WaitForAny(mayPause ? 3 : 2, handles, mayPause ? wm::waitForever : 0);
    // The wait has used up the setting; the watch has to know of it.
    if (first == stopped && watch != nullptr)
        watch->NoteStop();
    return first == (mayPause ? resumed : wm::waitTimedOut);
}

}  // namespace ZEL
