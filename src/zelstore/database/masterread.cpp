#include "common/boundary.h"
#include "common/textbridge.h"
#include "zelstore/database/endwatch.h"
#include "zelstore/database/leveldbinstance.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"
#include "zelstore/keys/keyformat.h"

// Reading single rows; scans stand in masterscan.cpp. Lookups go over a copy of the catalog, oldest
// database first, each opened for the purpose and let go at once. An event's enrichments are read
// where its date says, and the query keeps that database open until the date changes: events come
// in the order of time.

namespace ZEL {

namespace {

constexpr std::uint64_t stepsToOpen = 500'000;  // a database, for the watch of the query

// Opens a database for one read, unless it is open.
template <typename Read>
HRESULT ReadFrom(LevelDbInstanceProxy& proxy, Read&& read) {
    return AtBoundary([&] {
        std::shared_ptr<LevelDbInstance> instance;
        const HRESULT opened = proxy.GetInstance(&instance, IfMissing::fail);
        // The pointer goes at the end: with no other user the database closes here, on the reader's
        // thread.
        return Failed(opened) ? opened : read(*instance);
    });
}

}  // namespace

HRESULT ZelMasterDatabase::GetRecord(const std::string& key, std::string* value) {
    Catalog copy;
    HRESULT result = CopyDatabaseMap(&copy);
    if (Failed(result))
        return result;
    for (const auto& [path, proxy] : copy) {
        if (proxy->Number() == silentNumber)
            continue;
        if (SpendOfThread(stepsToOpen))
            return hr::aborted;
        result =
            ReadFrom(*proxy, [&](LevelDbInstance& instance) { return instance.Get(key, value); });
        if (Succeeded(result))
            return result;
        if (result != hr::notFound)
            RecordDatabaseError(path, DatabaseErrorKind::read, result);
    }
    return result;
}

HRESULT ZelMasterDatabase::GetQueryDatabase(const QueryId* query, const std::string& key,
                                            ProxyPtr* proxy) {
    if (query == nullptr)
        return hr::invalidArgument;
    std::string keyDate;
    HRESULT result = ExtractKeyDate(key, &keyDate);
    if (Failed(result))
        return result;
    std::wstring date;
    if (!wm::ToWide(keyDate, date))
        return hr::fail;
    QueryCursor former;  // dropped after the lock is released
    const wm::HoldExclusive hold(databaseLock_);
    QueryCursor& cursor = queryCursors_[*query];
    if (cursor.proxy && cursor.proxy->Date() == date) {
        *proxy = cursor.proxy;
        return hr::ok;
    }
    std::swap(former, cursor);
    // What was counted stays counted when the query goes on to another date.
    cursor.failed.swap(former.failed);
    if (former.isHeld)
        former.proxy->Release(LevelDbInstanceProxy::Cursor::drop);
    result = GetSilentDatabaseLocked(date, IfMissing::fail, proxy);
    if (Failed(result))
        return result;
    cursor.proxy = *proxy;
    // If it can't be opened, the read tries again and tells. One that only readers have is not
    // held.
    if (Succeeded((*proxy)->GetInstance(&cursor.open, IfMissing::fail)))
        cursor.isHeld =
            cursor.open == (*proxy)->PeekInstance() && Succeeded((*proxy)->Hold(IfMissing::fail));
    return hr::ok;
}

bool ZelMasterDatabase::IsFirstFailure(const QueryId& query, const std::wstring& path) {
    const wm::HoldExclusive hold(databaseLock_);
    return queryCursors_[query].failed.insert(path).second;
}

template <typename Read>
HRESULT ZelMasterDatabase::ReadSilent(const QueryId* query, const std::string& key, Read&& read) {
    return AtBoundary([&] {
        ProxyPtr proxy;
        HRESULT result = GetQueryDatabase(query, key, &proxy);
        if (Failed(result))
            return result;
        result = ReadFrom(*proxy, std::forward<Read>(read));
        if (Failed(result) && result != hr::notFound && IsFirstFailure(*query, proxy->Path()))
            RecordDatabaseError(proxy->Path(), DatabaseErrorKind::read, result);
        return result;
    });
}

HRESULT ZelMasterDatabase::GetEnrichments(const QueryId* query, const std::string& key,
                                          std::vector<std::string>* values) {
    return ReadSilent(query, key,
                      [&](LevelDbInstance& instance) { return instance.ReadPrefix(key, values); });
}

HRESULT ZelMasterDatabase::GetSilentEnrichments(const QueryId* query, const std::string& key,
                                                bool* hasOther, bool collect,
                                                std::vector<std::string>* values) {
    return ReadSilent(query, key, [&](LevelDbInstance& instance) {
        return instance.ReadSilentPrefix(key, hasOther, collect, values);
    });
}

void ZelMasterDatabase::ReleaseQueryCursor(const QueryId* query) {
    if (query == nullptr)
        return;
    QueryCursor former;
    {
        const wm::HoldExclusive hold(databaseLock_);
        const auto cursor = queryCursors_.find(*query);
        if (cursor == queryCursors_.end())
            return;
        former = std::move(cursor->second);
        queryCursors_.erase(cursor);
    }
    if (former.isHeld)
        former.proxy->Release();
}

}  // namespace ZEL
