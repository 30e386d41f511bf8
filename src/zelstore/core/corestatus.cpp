#include <new>

#include "common/filesystem.h"
#include "common/hostservices.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/database/izeldbimpl.h"

// What the store tells its host about its databases: the table of what failed, a record for each
// database and kind of operation, and how far back the store goes. Nothing here is kept; the
// databases are asked each time, and answer as soon as they have been opened once.

namespace ZEL {

namespace {

HRESULT AddErrorRecord(IValueCollection& list, const std::wstring& path,
                       const DatabaseErrorEntry& entry) {
    const auto record = CountedPtr<IValueRecord>::Adopt(wm::CreateValueRecord());
    const std::wstring name = wm::LastPathComponent(path);
    const auto folder = CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(name.c_str()));
    const bool added = record && folder && record->AddText(folder.Get()) &&
                       record->AddNumber(entry.operation) && record->AddNumber(entry.count) &&
                       record->AddNumber(Bits(entry.lastResult)) && list.AddRecord(record.Get());
    return added ? hr::ok : hr::outOfMemory;
}

}  // namespace

HRESULT EventStoreImpl::GetDatabaseErrors(IValueCollection** out) {
    IZelDbImpl* const database = database_.load(std::memory_order_acquire);
    if (database == nullptr) {
        wm::ReportError(hr::fail);
        return hr::fail;
    }
    if (out == nullptr)
        return hr::invalidArgument;
    // A host may keep one variable for all its calls; what that held would be lost.
    if (*out != nullptr)
        (*out)->Release();
    *out = nullptr;
    DatabaseErrorTable table;
    const HRESULT result = database->GetDatabaseErrors(&table);
    if (Failed(result)) {
        wm::Trace(wm::message::databaseErrorsNotRead, result);
        return result;
    }
    auto list = CountedPtr<IValueCollection>::Adopt(wm::CreateValueCollection());
    if (!list)
        return hr::outOfMemory;
    for (const auto& [path, record] : table) {
        for (const DatabaseErrorEntry& entry : record.entries) {
            if (entry.count == 0)
                continue;
            const HRESULT added = AddErrorRecord(*list, path, entry);
            if (Failed(added))
                return added;
        }
    }
    *out = list.Detach();
    return hr::ok;
}

HRESULT EventStoreImpl::ClearDatabaseErrors() {
    IZelDbImpl* const database = database_.load(std::memory_order_acquire);
    if (database == nullptr) {
        wm::Trace(wm::message::noDatabase, hr::fail);
        return hr::fail;
    }
    database->ClearDatabaseErrors();
    return hr::ok;
}

HRESULT EventStoreImpl::GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes) {
    IZelDbImpl* const database = database_.load(std::memory_order_acquire);
    if (database == nullptr) {
        wm::ReportError(hr::fail);
        return hr::fail;
    }
    if (oldestDate == nullptr || totalBytes == nullptr)
        return hr::invalidArgument;
    std::wstring date;
    const HRESULT result = database->GetOldestDate(&date, totalBytes);
    if (Failed(result)) {
        wm::Trace(wm::message::oldestDateNotTold, result);
        return result;
    }
    *oldestDate = wm::CreateStringValue(date.c_str());
    if (*oldestDate == nullptr) {
        wm::ReportError(hr::outOfMemory);
        return hr::outOfMemory;
    }
    return hr::ok;
}

}  // namespace ZEL
