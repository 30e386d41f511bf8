#include "common/boundary.h"
#include "common/filesystem.h"
#include "common/trace.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/foldersahead.h"
#include "zelstore/database/iquerysink.h"
#include "zelstore/database/leveldbinstance.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"

// A scan goes over a copy of the catalog, oldest database first, on the query's thread. Each
// database is opened for it, unless it is open, and let go behind it.
//
// Most of a short walk's time is the opening. So while one database is walked the next ones are
// opened on other threads: none at first, since the first database may be all that a limit needs,
// then twice as many with each, up to 8. One that is open in this process needs no opening, and is
// taken in its turn as it is then. Where few descriptors are left nothing is opened ahead: writers
// need them more.
//
// A closed database whose facts (foldermemory.h) say that no row can match is not opened at all.

namespace ZEL {

namespace {

using ProxyPtr = std::shared_ptr<LevelDbInstanceProxy>;

// The databases of one scan, in their turn.
class Turns {
public:
    Turns(std::vector<ProxyPtr> folders, const std::string& startKey, IQuerySink* sink)
        : folders_(std::move(folders)),
          startKey_(startKey),
          sink_(sink),
          plans_(folders_.size(), Plan::open),
          ahead_(startKey) {}

    std::size_t Count() const noexcept { return folders_.size(); }
    const std::wstring& Path(std::size_t turn) const { return folders_[turn]->Path(); }
    // Walks a database. Nothing is done for one that is passed over or has gone.
    template <typename Walk>
    HRESULT Take(std::size_t turn, Walk&& walk);

private:
    enum class Plan { open, passOver, openedAhead };

    Plan MakePlan(std::size_t turn, bool isAhead);
    bool BeginAhead(const ProxyPtr& folder);
    void LookAhead(std::size_t turn);
    OpenedFolder Open(std::size_t turn);

    const std::vector<ProxyPtr> folders_;
    const std::string& startKey_;
    IQuerySink* const sink_;
    std::vector<Plan> plans_;
    std::size_t planned_ = 0;  // so many have a plan
    std::size_t window_ = 0;   // how far to look beyond the database in hand
    std::size_t allowed_ = 0;  // so many may be begun ahead before descriptors are asked for anew
    FoldersAhead ahead_;
};

template <typename Walk>
HRESULT Turns::Take(std::size_t turn, Walk&& walk) {
    IgnoreResult(AtBoundary([&] {
                     LookAhead(turn);
                     return hr::ok;
                 }),
                 "what was not opened ahead is opened in its turn");
    return AtBoundary([&] {
        if (plans_[turn] == Plan::passOver)
            return hr::ok;
        OpenedFolder folder = Open(turn);
        HRESULT result = folder.result;
        // A purge that came since the opening waits for its last user.
        if (Succeeded(result) && !folders_[turn]->IsGone())
            result = walk(*folder.instance, std::move(folder.place));
        ahead_.Close(std::move(folder));
        return result;
    });
}

Turns::Plan Turns::MakePlan(std::size_t turn, bool isAhead) {
    const ProxyPtr& folder = folders_[turn];
    const std::shared_ptr<const FolderFacts> facts = folder->Recall();
    if (facts && !sink_->MayMatch(startKey_, *facts))
        return Plan::passOver;
    return isAhead && BeginAhead(folder) ? Plan::openedAhead : Plan::open;
}

// Whether there are descriptors is asked once for as many folders as are open at once.
bool Turns::BeginAhead(const ProxyPtr& folder) {
    constexpr std::size_t handlesKeptFree = 64;
    if (folder->PeekInstance())
        return false;
    if (allowed_ == 0 && wm::CanOpenFiles(handlesKeptFree))
        allowed_ = FoldersAhead::mostThreads;
    if (allowed_ == 0 || !ahead_.Begin(folder))
        return false;
    --allowed_;
    return true;
}

void Turns::LookAhead(std::size_t turn) {
    const std::size_t end = std::min(turn + 1 + window_, folders_.size());
    for (; planned_ < std::max(end, turn + 1); ++planned_)
        plans_[planned_] = MakePlan(planned_, planned_ > turn);
    window_ = std::clamp<std::size_t>(window_ * 2, 1, FoldersAhead::mostThreads);
}

// What failed ahead for want of something may go well now.
OpenedFolder Turns::Open(std::size_t turn) {
    if (plans_[turn] == Plan::openedAhead) {
        OpenedFolder folder = ahead_.Take();
        if (folder.result != hr::tooManyOpenFiles && folder.result != hr::outOfMemory)
            return folder;
    }
    return FoldersAhead::OpenHere(*folders_[turn], "");
}

}  // namespace

HRESULT ZelMasterDatabase::Scan(const std::string& startKey, IQuerySink* sink, HANDLE stopEvent,
                                HANDLE pauseEvent) {
    if (sink == nullptr)
        return hr::invalidArgument;
    std::vector<ProxyPtr> folders;
    HRESULT result = CopyEventDatabases(&folders);
    if (Failed(result))
        return result;
    result = AtBoundary([&] { return sink->Begin(this); });
    if (Failed(result))
        return result;
    EndWatch* const watch = EndWatch::OfThread();
    Turns turns(std::move(folders), startKey, sink);
    bool keepGoing = true;
    for (std::size_t turn = 0; turn < turns.Count(); ++turn) {
        if (watch != nullptr && !watch->BeginWalk())
            break;
        result = turns.Take(turn, [&](LevelDbInstance& instance, auto place) {
            return instance.Scan(startKey, sink, stopEvent, pauseEvent, &keepGoing,
                                 std::move(place));
        });
        if (Failed(result) && result != hr::notFound)
            RecordDatabaseError(turns.Path(turn), DatabaseErrorKind::read, result);
        if (!keepGoing)
            break;
    }
    result = AtBoundary([&] { return sink->End(); });
    if (Failed(result))
        wm::Trace(wm::message::scanEndFailed, result);
    return hr::ok;
}

}  // namespace ZEL
