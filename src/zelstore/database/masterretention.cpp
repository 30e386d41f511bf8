#include "common/boundary.h"
#include "common/filesystem.h"
#include "common/trace.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"

// Retention. Nothing is deleted by key or by age: when the store is larger than it may be, whole
// folders go, the oldest first, until the rest fits. The databases that take today's events and the
// last silent enrichments stay, and so does one whose first write is under way; all others may go,
// today's older ones among them.
//
// A folder goes in two steps. It leaves the catalog, so that nobody new finds it; then its files
// go, at once or behind the last reader. In between it still counts as used room: a limit that is
// asked for again at that moment may take further folders.
//
// Sizes are added up outside of all locks, while records are written. The lock is taken anew for
// each victim, so that a writer waits for the removal of one folder and not of all. Marking under
// that lock keeps out a writer that would make the folder anew in between.

namespace ZEL {

namespace {

constexpr std::uint64_t bytesPerMegabyte = 0x100000;

// A database is a folder: what a link in its place points at belongs to somebody else.
HRESULT DatabaseBytes(const std::wstring& folder, std::uint64_t* bytes) {
    *bytes = 0;
    return wm::IsLink(folder) ? hr::ok : wm::FolderSize(folder, bytes);
}

}  // namespace

HRESULT ZelMasterDatabase::GetOldestDate(std::wstring* oldestDate, std::uint64_t* totalBytes) {
    return AtBoundary([&] {
        oldestDate->clear();
        *totalBytes = 0;
        const std::wstring today = FormatToday();
        const wm::HoldExclusive hold(databaseLock_);
        for (const auto& [path, proxy] : databases_) {
            // Today's are the ones that grow, and so the ones whose estimate is off.
            if (proxy->Date() == today && proxy->RecordsSinceCount() != 0)
                proxy->RecountSize();
            *totalBytes += EstimatedSize(*proxy);
            if (oldestDate->empty() || PathLess()(proxy->Date(), *oldestDate))
                *oldestDate = proxy->Date();
        }
        return hr::ok;
    });
}

HRESULT ZelMasterDatabase::EnforceSizeLimit(std::uint32_t maxMegabytes, std::uint32_t* status) {
    if (status == nullptr)
        return hr::invalidArgument;
    return AtBoundary([&] {
        if (!wm::IsDirectory(dataStoreDirectory_))
            return hr::pathNotFound;
        std::uint64_t total = 0;
        HRESULT result = wm::FolderSize(dataStoreDirectory_, &total);
        if (Failed(result))
            return result;
        const std::uint64_t limit = maxMegabytes * bytesPerMegabyte;
        // The exact size, not the estimate: this decides what is deleted.
        if (total <= limit) {
            *status = sizeLimitHonored;
            return hr::ok;
        }
        Catalog candidates;
        result = GetDeletionCandidates(&candidates);
        if (Failed(result))
            return result;
        std::vector<ProxyPtr> victims;
        result = SelectVictims(candidates, total - limit, &victims, status);
        for (const ProxyPtr& victim : victims)
            Delete(victim);
        return result;
    });
}

bool ZelMasterDatabase::IsProtectedLocked(const ProxyPtr& proxy) const {
    return proxy == writeDatabase_ || proxy == silentDatabase_ || proxy->IsBeingWritten();
}

HRESULT ZelMasterDatabase::GetDeletionCandidates(Catalog* candidates) {
    const HRESULT result = CopyDatabaseMap(candidates);
    if (Failed(result))
        return result;
    const wm::HoldShared hold(databaseLock_);
    for (auto entry = candidates->begin(); entry != candidates->end();)
        entry = IsProtectedLocked(entry->second) ? candidates->erase(entry) : std::next(entry);
    return hr::ok;
}

HRESULT ZelMasterDatabase::SelectVictims(const Catalog& candidates, std::uint64_t excessBytes,
                                         std::vector<ProxyPtr>* victims, std::uint32_t* status) {
    std::vector<ProxyPtr> chosen;
    std::uint64_t freed = 0;
    for (auto entry = candidates.begin(); entry != candidates.end() && freed < excessBytes;
         ++entry) {
        std::uint64_t bytes = 0;
        const HRESULT result = DatabaseBytes(entry->first, &bytes);
        if (Failed(result))
            return result;
        freed += bytes;
        chosen.push_back(entry->second);
    }
    *status = freed < excessBytes ? sizeLimitNotHonored : sizeLimitHonored;
    victims->swap(chosen);
    return hr::ok;
}

void ZelMasterDatabase::Delete(const ProxyPtr& victim) {
    const wm::HoldExclusive hold(databaseLock_);
    const auto entry = databases_.find(victim->Path());
    // By now it may take writes, or another database may stand in its place.
    if (entry == databases_.end() || entry->second != victim || IsProtectedLocked(victim))
        return;
    databases_.erase(entry);
    victim->MarkForDeletion();
}

}  // namespace ZEL
