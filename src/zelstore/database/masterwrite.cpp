#include <utility>
#include <vector>

#include "common/boundary.h"
#include "common/errorreport.h"
#include "common/filesystem.h"
#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/database/foldergate.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"
#include "zelstore/keys/keyformat.h"

// Writing. A batch goes to the highest-numbered event database of today. When that holds its share
// of table files, the next write opens one with the next number; holes in the numbers stay. The
// former write database is let go only then, so that without writes it stays open past midnight.
//
// Silent enrichments go to the one database 999 of their event's date. The last one written is kept
// open if it was made here; one that was there before is opened for each write. A record whose key
// has no date belongs nowhere: it stays in the batch, and the others are written.
//
// A database that a write finds corrupt or its device broken, and again when it has been opened
// anew, is given up: it leaves the catalog, then its folder goes. Its batch is lost, the next one
// starts a new database. No other failure gives anything up; a lack of room, of descriptors, of
// memory or of leave to write costs the batch that meets it, and the next one tries again.
//
// Where a write has failed while a query reads the folder, that folder can't be opened anew, and
// the day goes on in the one with the next number. A date has but one database 999, which has to
// wait for its reader; when it was purged under a reader, it is made anew.

namespace ZEL {

namespace {

// An estimate that says "full" is not believed while there are records it has guessed at.
bool IsFull(LevelDbInstanceProxy& proxy) {
    if (EstimatedSize(proxy) < databaseLimitBytes)
        return false;
    if (proxy.RecordsSinceCount() != 0)
        proxy.RecountSize();
    return proxy.EstimatedBytes() >= databaseLimitBytes;
}

bool IsToBeFollowed(LevelDbInstanceProxy& proxy) {
    return proxy.IsHeldByReader() || IsFull(proxy);
}

// The table of errors counts failures; a host that has to account for its records needs their
// number, which is known here alone.
void ReportLostRecords(HRESULT result, std::size_t count) {
    wm::ReportError(result, wm::reportLabel::lostBatch, wm::lostDetail::enrichments,
                    std::to_string(count).c_str());
}

// Ends the mark that was set when the database was chosen.
class WriteUnderWay {
public:
    explicit WriteUnderWay(LevelDbInstanceProxy& proxy) noexcept : proxy_(proxy) {}
    ~WriteUnderWay() { proxy_.EndWrite(); }
    WriteUnderWay(const WriteUnderWay&) = delete;
    WriteUnderWay& operator=(const WriteUnderWay&) = delete;

private:
    LevelDbInstanceProxy& proxy_;
};

}  // namespace

HRESULT ZelMasterDatabase::WriteRecords(RecordBatch& batch) {
    return AtBoundary([&] {
        return WriteToChosen(
            batch, [this](ProxyPtr* proxy) { return GetWriteDatabase(proxy); },
            [](const ProxyPtr&) {});
    });
}

template <typename Choose, typename Keep>
HRESULT ZelMasterDatabase::WriteToChosen(const RecordBatch& batch, Choose&& choose, Keep&& keep) {
    ProxyPtr proxy;
    HRESULT result = hr::fail;
    // A second time where the first choice was given up meanwhile, or is kept by a reader.
    for (int attempt = 0; attempt < 2; ++attempt) {
        result = choose(&proxy);
        if (Failed(result))
            return result;
        const WriteUnderWay underWay(*proxy);
        result = AtBoundary([&] { return proxy->Write(batch); });
        if (Succeeded(result))
            keep(proxy);  // ahead of the next purge
        if (Succeeded(result) || !(proxy->IsGone() || proxy->IsHeldByReader()))
            break;
    }
    if (Failed(result))
        OnWriteFailure(proxy, result);
    return result;
}

// A folder that this process does not hold yet may be open in a program that reads it.
void ZelMasterDatabase::AwaitWriteFolder(const std::function<bool()>& isToEnd) {
    IgnoreResult(AtBoundary([&] {
                     if (const ProxyPtr next = NextWriteDatabase())
                         FolderGate::For(next->Path())->AwaitOtherProcess(isToEnd);
                     return hr::ok;
                 }),
                 "the writes tell what they meet");
}

// Today's newest database, when it is not the one that is held.
ZelMasterDatabase::ProxyPtr ZelMasterDatabase::NextWriteDatabase() {
    const std::wstring today = FormatToday();
    const wm::HoldExclusive hold(databaseLock_);
    return writeDatabase_ && writeDatabase_->Date() == today ? nullptr : FindLocked(today, false);
}

HRESULT ZelMasterDatabase::GetWriteDatabase(ProxyPtr* proxy) {
    const wm::HoldExclusive hold(databaseLock_);
    const HRESULT result = GetWriteDatabaseLocked(FormatToday(), proxy);
    if (Succeeded(result))
        (*proxy)->BeginWrite();
    return result;
}

HRESULT ZelMasterDatabase::GetWriteDatabaseLocked(const std::wstring& today, ProxyPtr* proxy) {
    ProxyPtr current = writeDatabase_ && writeDatabase_->Date() == today ? writeDatabase_
                                                                         : FindLocked(today, false);
    if (current && (current->Number() == lastEventNumber || !IsToBeFollowed(*current))) {
        *proxy = current;
        return ReuseWriteDatabaseLocked(current);
    }
    RetireWriteDatabaseLocked();
    const HRESULT created =
        CreateDatabaseLocked(current ? FolderPath(dataStoreDirectory_, today, current->Number() + 1)
                                     : FolderPath(dataStoreDirectory_, today),
                             proxy);
    if (Failed(created))
        return created;
    writeDatabase_ = *proxy;
    return hr::ok;
}

ZelMasterDatabase::ProxyPtr ZelMasterDatabase::FindLocked(const std::wstring& date, bool silent) {
    // A date's folders stand together in the catalog, the newest last.
    const std::wstring prefix = FolderPath(dataStoreDirectory_, date);
    ProxyPtr newest;
    for (auto entry = databases_.lower_bound(prefix);
         entry != databases_.end() && entry->first.starts_with(prefix); ++entry) {
        const ProxyPtr& proxy = entry->second;
        if (proxy->Date() == date && (proxy->Number() == silentNumber) == silent)
            newest = proxy;
    }
    return newest;
}

void ZelMasterDatabase::RetireWriteDatabaseLocked() {
    if (!writeDatabase_)
        return;
    if (writeDatabase_->RecordsSinceCount() != 0)
        writeDatabase_->RecountSize();
    writeDatabase_->Release();
    writeDatabase_.reset();
}

HRESULT ZelMasterDatabase::ReuseWriteDatabaseLocked(const ProxyPtr& proxy) {
    if (proxy == writeDatabase_)
        return hr::ok;
    RetireWriteDatabaseLocked();
    const HRESULT result = proxy->Hold(IfMissing::fail);
    if (Failed(result)) {
        RecordDatabaseError(proxy->Path(), DatabaseErrorKind::open, result);
        return result;
    }
    writeDatabase_ = proxy;
    return hr::ok;
}

HRESULT ZelMasterDatabase::CreateDatabaseLocked(std::wstring path, ProxyPtr* proxy) {
    auto fresh = std::make_shared<LevelDbInstanceProxy>(path);
    const HRESULT result = fresh->Hold(IfMissing::create);
    if (Failed(result)) {
        RecordDatabaseError(path, DatabaseErrorKind::open, result);
        return result;
    }
    databases_[std::move(path)] = fresh;
    *proxy = std::move(fresh);
    return hr::ok;
}

HRESULT ZelMasterDatabase::GetSilentDatabaseLocked(const std::wstring& date, IfMissing ifMissing,
                                                   ProxyPtr* proxy) {
    *proxy = FindLocked(date, true);
    if (*proxy)
        return hr::ok;
    if (ifMissing == IfMissing::fail)
        return hr::notFound;
    if (!IsSafeDate(date)) {
        wm::Trace(wm::message::dateNamesNoFolder, hr::fail);
        return hr::fail;
    }
    return CreateDatabaseLocked(FolderPath(dataStoreDirectory_, date, silentNumber), proxy);
}

HRESULT ZelMasterDatabase::WriteSilentRecords(RecordBatch& batch) {
    const std::size_t count = batch.size();
    std::size_t written = 0;
    const HRESULT result = AtBoundary([&] { return WriteSilentGroups(batch, &written); });
    if (written != count)
        IgnoreResult(AtBoundary([&] {
                         ReportLostRecords(result, count - written);
                         return hr::ok;
                     }),
                     "a report never changes a result");
    return result;
}

HRESULT ZelMasterDatabase::WriteSilentGroups(RecordBatch& batch, std::size_t* written) {
    HRESULT firstFailure = hr::ok;
    while (!batch.empty()) {
        std::string date;
        RecordBatch group;
        TakeSilentGroup(batch, &date, &group);
        if (group.empty())
            return Failed(firstFailure) ? firstFailure : hr::fail;
        const HRESULT result = AtBoundary([&] { return WriteSilentGroup(date, group); });
        if (Succeeded(result))
            *written += group.size();
        else if (Succeeded(firstFailure))
            firstFailure = result;
    }
    return firstFailure;
}

void ZelMasterDatabase::TakeSilentGroup(RecordBatch& batch, std::string* groupDate,
                                        RecordBatch* group) {
    std::string date;
    for (auto record = batch.begin(); record != batch.end();) {
        const auto next = std::next(record);
        const bool hasDate = Succeeded(ExtractKeyDate(record->first, &date));
        if (hasDate && group->empty())
            *groupDate = date;
        if (hasDate && date == *groupDate)
            group->insert(group->end(), batch.extract(record));
        record = next;
    }
}

HRESULT ZelMasterDatabase::WriteSilentGroup(const std::string& date, const RecordBatch& group) {
    std::wstring wideDate;
    if (!wm::ToWide(date, wideDate))
        return hr::fail;
    return WriteToChosen(
        group, [&](ProxyPtr* proxy) { return ChooseSilentDatabase(wideDate, proxy); },
        [this](const ProxyPtr& proxy) { KeepSilentDatabase(proxy); });
}

HRESULT ZelMasterDatabase::ChooseSilentDatabase(const std::wstring& date, ProxyPtr* proxy) {
    const wm::HoldExclusive hold(databaseLock_);
    HRESULT result = hr::ok;
    if (silentDatabase_ && silentDatabase_->Date() == date)
        *proxy = silentDatabase_;
    else
        result = GetSilentDatabaseLocked(date, IfMissing::create, proxy);
    if (Succeeded(result))
        (*proxy)->BeginWrite();
    return result;
}

void ZelMasterDatabase::KeepSilentDatabase(const ProxyPtr& proxy) {
    ProxyPtr former;
    {
        const wm::HoldExclusive hold(databaseLock_);
        const auto entry = databases_.find(proxy->Path());
        const bool isGivenUp = entry == databases_.end() || entry->second != proxy;
        if (isGivenUp || proxy == silentDatabase_)
            return;
        former = std::exchange(silentDatabase_, proxy);
    }
    if (former)
        former->Release();
}

void ZelMasterDatabase::OnWriteFailure(const ProxyPtr& proxy, HRESULT result) {
    RecordDatabaseError(proxy->Path(), DatabaseErrorKind::write, result);
    if (LevelDbInstanceProxy::TellsBrokenDatabase(result))
        GiveUp(proxy);
}

void ZelMasterDatabase::GiveUp(const ProxyPtr& proxy) {
    {
        const wm::HoldExclusive hold(databaseLock_);
        const auto entry = databases_.find(proxy->Path());
        // When another writer gave it up before, the folder may belong to a new database by now.
        if (entry != databases_.end() && entry->second == proxy)
            databases_.erase(entry);
        if (proxy == writeDatabase_)
            writeDatabase_.reset();
        if (proxy == silentDatabase_)
            silentDatabase_.reset();
    }
    proxy->Release();
    proxy->MarkForDeletion();
}

}  // namespace ZEL
