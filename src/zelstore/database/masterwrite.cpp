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
// open if it was made here; one that was there before is opened for each write.
//
// A database whose files turn out corrupt or whose device fails in a write is given up: it leaves
// the catalog, then its folder goes. Its batch is lost, the next one starts a new database. No
// other failure gives anything up.

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

// The table of errors tells what a folder has lost. Where no folder is concerned only a report can.
void ReportLostRecords(HRESULT result, std::size_t count) {
    wm::ReportError(result, "WriteSilentRecords", "Lost Records", std::to_string(count).c_str());
}

void ReportUnlessCounted(HRESULT result, const std::string& date, std::size_t count) {
    const auto report = [&] {
        std::wstring wideDate;
        if (!wm::ToWide(date, wideDate) || !IsSafeDate(wideDate))
            ReportLostRecords(result, count);
        return hr::ok;
    };
    IgnoreResult(AtBoundary(report), "a report never changes a result");
}

// A process that ends while the library makes a database leaves a folder that can't be opened and
// holds no rows. The next write makes it anew, once the catalog does not name it any more. With any
// other file in it, it is somebody's.
bool IsCutOffMaking(const std::wstring& folder) {
    const auto has = [&](const wchar_t* name) {
        return wm::FileExists(wm::JoinPath(folder, name));
    };
    std::vector<std::wstring> inside;
    if (has(L"CURRENT") || Failed(wm::ListDirectories(folder, inside)) || !inside.empty())
        return false;
    std::uint64_t leftovers = wm::CountFiles(folder, L".dbtmp");
    for (const wchar_t* name : {L"LOCK", L"LOG", L"LOG.old", L"MANIFEST-000001"})
        leftovers += has(name) ? 1 : 0;
    return wm::CountFiles(folder, L"") == leftovers;
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
        LeaveOutCutOffMaking();
        ProxyPtr proxy;
        HRESULT result = GetWriteDatabase(&proxy);
        if (Failed(result))
            return result;
        const WriteUnderWay underWay(*proxy);
        result = AtBoundary([&] { return proxy->Write(batch); });
        if (Failed(result))
            OnWriteFailure(proxy, result);
        return result;
    });
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

void ZelMasterDatabase::LeaveOutCutOffMaking() {
    const ProxyPtr next = NextWriteDatabase();
    if (!next || !IsCutOffMaking(next->Path()))
        return;
    wm::Trace(wm::message::halfMadeDatabase, hr::fail, wm::ToUtf8Lossy(next->Path()));
    const wm::HoldExclusive hold(databaseLock_);
    const auto entry = databases_.find(next->Path());
    if (entry != databases_.end() && entry->second == next && !next->PeekInstance())
        databases_.erase(entry);
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
    if (current && (current->Number() == lastEventNumber || !IsFull(*current))) {
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
    return AtBoundary([&] {
        std::string passDate, date;
        while (!batch.empty()) {
            RecordBatch group;
            for (auto record = batch.begin(); record != batch.end();) {
                const HRESULT result = ExtractKeyDate(record->first, &date);
                if (Failed(result)) {
                    ReportLostRecords(result, batch.size() + group.size());
                    return result;
                }
                if (group.empty())
                    passDate = date;
                const auto next = std::next(record);
                if (date == passDate)
                    group.insert(group.end(), batch.extract(record));
                record = next;
            }
            const HRESULT result = WriteSilentGroup(passDate, group);
            if (Failed(result)) {
                ReportUnlessCounted(result, passDate, batch.size() + group.size());
                return result;
            }
        }
        return hr::ok;
    });
}

HRESULT ZelMasterDatabase::WriteSilentGroup(const std::string& date, const RecordBatch& group) {
    std::wstring wideDate;
    if (!wm::ToWide(date, wideDate))
        return hr::fail;
    ProxyPtr proxy;
    HRESULT result = ChooseSilentDatabase(wideDate, &proxy);
    if (Failed(result))
        return result;
    const WriteUnderWay underWay(*proxy);
    result = AtBoundary([&] { return proxy->Write(group); });
    if (Failed(result))
        OnWriteFailure(proxy, result);
    else
        KeepSilentDatabase(proxy);
    return result;
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
    if (result == hr::corrupt || result == hr::deviceError)
        GiveUp(proxy);
}

void ZelMasterDatabase::GiveUp(const ProxyPtr& proxy) {
    {
        const wm::HoldExclusive hold(databaseLock_);
        const auto entry = databases_.find(proxy->Path());
        // Another writer gave it up before, and the folder belongs to a new database by now.
        if (entry != databases_.end() && entry->second != proxy)
            return;
        if (entry != databases_.end())
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
