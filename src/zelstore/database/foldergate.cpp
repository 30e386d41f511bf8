#include "zelstore/database/foldergate.h"

#include <chrono>
#include <map>
#include <thread>

#include "common/boundary.h"
#include "common/filesystem.h"
#include "common/neverdestroyed.h"
#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/database/leftovers.h"

// One user of a folder at a time. LevelDB's own lock on a folder tells processes apart; objects of
// one process have to be kept apart here. And closing takes time: when the last pointer is gone,
// files are still being written. So every opening, closing and removal in this process passes here,
// under the folder's own lock; other processes are told by the lock of the file.
//
// A folder is removed under another name. Should the process be killed in the middle, the next
// start finds a name that no database has and takes the rest away.

namespace ZEL {

namespace {

struct GateRegistry {
    wm::Lock lock;
    std::map<std::wstring, std::weak_ptr<FolderGate>> gates GUARDED_BY(lock);
};

// Databases may be closed while the process ends.
GateRegistry& Registry() {
    static wm::NeverDestroyed<GateRegistry> registry;
    return *registry;
}

// A program that reads a folder lets it go soon, and to wait for it costs less than a batch.
constexpr std::chrono::milliseconds patience(1000);
constexpr std::chrono::milliseconds lookAgain(10);

}  // namespace

std::shared_ptr<FolderGate> FolderGate::For(const std::wstring& folder) {
    // Made first: were it dropped under the lock, it would take that lock again.
    auto fresh = std::make_shared<FolderGate>(folder);
    GateRegistry& registry = Registry();
    const wm::Hold hold(registry.lock);
    std::weak_ptr<FolderGate>& entry = registry.gates[folder];
    if (std::shared_ptr<FolderGate> existing = entry.lock())
        return existing;
    entry = fresh;
    return fresh;
}

FolderGate::~FolderGate() {
    GateRegistry& registry = Registry();
    const wm::Hold hold(registry.lock);
    const auto entry = registry.gates.find(folder_);
    if (entry != registry.gates.end() && entry->second.expired())
        registry.gates.erase(entry);
}

void FolderGate::SetOpen(std::weak_ptr<LevelDbInstance> user) {
    isOpen_ = true;
    user_ = std::move(user);
}

void FolderGate::SetClosed() {
    isOpen_ = false;
    user_.reset();
    closed_.notify_all();
}

void FolderGate::AwaitClosed() NO_THREAD_SAFETY_ANALYSIS {
    struct LeftMeanwhile {
        wm::Lock& held;
        void lock() NO_THREAD_SAFETY_ANALYSIS { held.Acquire(); }
        void unlock() NO_THREAD_SAFETY_ANALYSIS { held.Release(); }
    } left{lock};
    // A user that is alive is no reason to wait: who asks is then refused, or shares its instance.
    while (isOpen_ && user_.expired())
        closed_.wait(left);
}

HRESULT FolderGate::CheckOpen(IfMissing ifMissing) const {
    const HRESULT result = CheckFolder(ifMissing);
    return Succeeded(result) && IsOpenElsewhere() ? hr::sharingViolation : result;
}

HRESULT FolderGate::CheckRead() const {
    return CheckFolder(IfMissing::fail);
}

HRESULT FolderGate::CheckFolder(IfMissing ifMissing) const {
    if (isOpen_)
        return hr::deviceError;
    if (wm::IsLink(folder_))
        return hr::fail;
    const std::wstring current = wm::JoinPath(folder_, L"CURRENT");
    if (!wm::IsRegularFile(current)) {
        // Asked to open what isn't there, the library would leave files behind; asked to make it,
        // it would remove the tables and logs that it finds.
        if (ifMissing == IfMissing::fail || wm::FileExists(current) || MayHoldRows(folder_))
            return hr::fail;
        if (!HasRoomFor(StoreOfPath(folder_), 0))
            return hr::diskFull;
    }
    if (!wm::CanOpenFiles(handlesOfADatabase))
        return hr::tooManyOpenFiles;
    if (!wm::CanReadFiles(folder_, L".log"))
        return hr::accessDenied;
    return hr::ok;
}

void FolderGate::AwaitOtherProcess(const std::function<bool()>& isToEnd) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!isToEnd() && std::chrono::steady_clock::now() < end) {
        {
            const wm::Hold hold(lock);
            if (isOpen_ || !IsOpenElsewhere())
                return;
        }
        std::this_thread::sleep_for(lookAgain);
    }
}

// Looking at the file would drop the lock of this very process, so only while it has none.
bool FolderGate::IsOpenElsewhere() const {
    return wm::IsLockedByAnotherProcess(wm::JoinPath(folder_, L"LOCK"));
}

void FolderGate::Remove() const noexcept {
    const bool isOpenHere = isOpen_;
    IgnoreResult(AtBoundary([&] {
                     const HRESULT result = isOpenHere          ? hr::deviceError
                                            : IsOpenElsewhere() ? hr::sharingViolation
                                                                : MoveAndRemove();
                     if (Failed(result))
                         wm::Trace(wm::message::folderNotRemoved, result, wm::ToUtf8Lossy(folder_));
                     return result;
                 }),
                 "only traced");
}

// The name changes in one step: a process that is killed leaves the whole database, or a folder
// that can be told from one.
HRESULT FolderGate::MoveAndRemove() const {
    if (!HasDatabaseName(folder_)) {  // what a removal has left, or somebody's
        RemoveDatabase(folder_);
        return hr::ok;
    }
    const std::wstring place = PlaceForRemoval(folder_);
    const HRESULT moved = wm::Rename(folder_, place);
    if (Failed(moved))
        return moved == hr::pathNotFound ? hr::ok : moved;
    // Another process may have come since the check.
    if (wm::IsLockedByAnotherProcess(wm::JoinPath(place, L"LOCK"))) {
        IgnoreResult(wm::Rename(place, folder_), "it goes at the next start");
        return hr::sharingViolation;
    }
    RemoveDatabase(place);
    return hr::ok;
}

}  // namespace ZEL
