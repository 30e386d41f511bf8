#include "zelstore/database/masterdatabase.h"

#include "common/boundary.h"
#include "common/errorreport.h"
#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/neverdestroyed.h"
#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/failurelistener.h"
#include "zelstore/database/foldergate.h"
#include "zelstore/database/leftovers.h"
#include "zelstore/database/leveldbinstance.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/runningwalk.h"

// The catalog's life. It is made once for the process, when the store first starts, from the names
// of the folders; nothing is opened for that. It is emptied when the store is shut down, and not
// read again: a store that is started anew knows only what it then writes. So what an earlier start
// wrote is found again by the next process.
//
// A folder that the system keeps for itself, that can't be looked into, or that a removal has left
// is passed over. Every other one in which there are tables counts as a database, whatever it is
// called.

namespace ZEL {

namespace {

struct ProcessDatabase {
    wm::Lock lock{wm::LockRank::masterDatabase};
    std::unique_ptr<ZelMasterDatabase> database GUARDED_BY(lock);
};

// Whether a folder belongs into the catalog. Who reads alone asks for no lock, and has no use for
// one without rows.
bool IsDatabase(const std::wstring& folder, bool hasTables, StoreUse use) {
    if (IsLeftByRemoval(folder))
        return false;
    const bool isReachable = hasTables ? !IsOfSystem(folder) : !IsOutOfReach(folder);
    // Another process may just be making one, and writes of this one are to wait for it.
    if (isReachable)
        return hasTables || !HoldsNoRows(folder) ||
               (use == StoreUse::readWrite && FolderGate::For(folder)->IsOpenElsewhere());
    wm::Trace(wm::message::folderPassedOver, hr::accessDenied, wm::ToUtf8Lossy(folder));
    return false;
}

// Takes away what a kill has left of a removal or of a making, unless another process has it.
void FinishLeftover(const std::wstring& folder) {
    if (!IsLeftByRemoval(folder) && !HoldsNoRows(folder))
        return;
    wm::Trace(wm::message::leftoverTakenAway, hr::ok, wm::ToUtf8Lossy(folder));
    const std::shared_ptr<FolderGate> gate = FolderGate::For(folder);
    const wm::Hold closed(gate->lock);
    gate->Remove();
}

}  // namespace

IZelDbImpl* GetMasterDatabase(StoreUse use) {
    static wm::NeverDestroyed<ProcessDatabase> one;
    ProcessDatabase& process = *one;
    const wm::Hold hold(process.lock);
    if (process.database)
        return process.database->Use() == use ? process.database.get() : nullptr;
    std::unique_ptr<ZelMasterDatabase> fresh;
    const HRESULT result = AtBoundary([&fresh, use] {
        fresh = std::make_unique<ZelMasterDatabase>(use);
        return fresh->LoadExistingDatabases();
    });
    if (Failed(result))
        return nullptr;
    process.database = std::move(fresh);
    return process.database.get();
}

ZelMasterDatabase::ZelMasterDatabase(StoreUse use) : use_(use) {}
ZelMasterDatabase::~ZelMasterDatabase() = default;

HRESULT ZelMasterDatabase::LoadExistingDatabases() {
    if (dataStoreDirectory_.empty()) {
        std::wstring directory;
        if (!wm::ResolvePathVariable(L"%ZELDataStore%", directory) || directory.empty()) {
            wm::ReportError(hr::unexpected);
            return hr::unexpected;
        }
        dataStoreDirectory_ = std::move(directory);
    }
    if (!wm::IsDirectory(dataStoreDirectory_))
        return hr::nothingToDo;
    std::vector<std::wstring> folders;
    const HRESULT listed = wm::ListDirectories(dataStoreDirectory_, folders);
    if (Failed(listed)) {
        wm::ReportError(listed);
        return listed;
    }
    Catalog found;
    for (const std::wstring& folder : folders) {
        IgnoreResult(AtBoundary([&] {
                         auto proxy = std::make_shared<LevelDbInstanceProxy>(folder, use_);
                         if (IsDatabase(folder, proxy->EstimatedBytes() != 0, use_))
                             found[folder] = std::move(proxy);
                         else if (use_ == StoreUse::readWrite)
                             FinishLeftover(folder);
                         return hr::ok;
                     }),
                     "a folder without a proxy is passed over");
    }
    const wm::HoldExclusive hold(databaseLock_);
    databases_.swap(found);
    return hr::ok;
}

void ZelMasterDatabase::AbortScans() {
    // Ahead of the walks: a query between two of them has none that could be ended.
    EndWatch::AbortAll();
    RunningWalk::AbortAll();
}

HRESULT ZelMasterDatabase::SetBlockSize(std::uint32_t bytes) {
    if (bytes != 0 && (bytes < leastBlockBytes || bytes > mostBlockBytes))
        return hr::invalidArgument;
    LevelDbInstance::SetBlockSize(bytes);
    return hr::ok;
}

void ZelMasterDatabase::CloseAll() {
    // Dropped after the lock is released: closing takes as long as the library's background work.
    Catalog closing;
    ProxyPtr writing, silent;
    const wm::HoldExclusive hold(databaseLock_);
    closing.swap(databases_);
    writing.swap(writeDatabase_);
    silent.swap(silentDatabase_);
}

HRESULT ZelMasterDatabase::CopyDatabaseMap(Catalog* copy) {
    return AtBoundary([&] {
        const wm::HoldShared hold(databaseLock_);
        *copy = databases_;
        return hr::ok;
    });
}

HRESULT ZelMasterDatabase::CopyEventDatabases(std::vector<ProxyPtr>* out) {
    return AtBoundary([&] {
        const wm::HoldShared hold(databaseLock_);
        for (const auto& [path, proxy] : databases_)
            if (proxy->Number() != silentNumber)
                out->push_back(proxy);
        return hr::ok;
    });
}

HRESULT ZelMasterDatabase::GetDatabaseErrors(DatabaseErrorTable* out) {
    if (out == nullptr)
        return hr::invalidArgument;
    return AtBoundary([&] {
        errorTable_.CopyTo(out);
        return hr::ok;
    });
}

void ZelMasterDatabase::RecordDatabaseError(const std::wstring& path, DatabaseErrorKind kind,
                                            HRESULT result) noexcept {
    IgnoreResult(AtBoundary([&] {
                     errorTable_.Record(path, kind, result);
                     if (FailureListener* const listener = FailureListener::OfThread())
                         listener->OnFailure(path, kind, result);
                     return hr::ok;
                 }),
                 "a count is lost");
}

}  // namespace ZEL
