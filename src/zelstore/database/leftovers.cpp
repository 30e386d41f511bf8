#include "zelstore/database/leftovers.h"

#include <leveldb/db.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "common/boundary.h"
#include "common/filesystem.h"
#include "common/foldernames.h"
#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/database/statusresult.h"

// What may be taken away at a start. A folder goes when its name says that its removal was decided
// on, or when it has a database's name and nothing in it can be a row. One that looks strange
// stays, and at worst is tried as a database. Links are never followed; what they lead to belongs
// to somebody else.

namespace ZEL {

namespace {

constexpr wchar_t removedMark[] = L".removed";

// Files as the library names them, those that may hold rows apart.
bool IsBookkeeping(std::wstring_view name) {
    constexpr std::wstring_view manifest = L"MANIFEST-", fresh = L".dbtmp";
    if (name == L"CURRENT" || name == L"LOCK" || name == L"LOG" || name == L"LOG.old")
        return true;
    if (name.starts_with(manifest))
        return detail::AreDigits(name.substr(manifest.size()));
    return name.ends_with(fresh) && detail::AreDigits(name.substr(0, name.size() - fresh.size()));
}

bool IsEmptyLog(const std::wstring& folder, std::wstring_view name) {
    constexpr std::wstring_view log = L".log";
    std::uint64_t bytes = 0;
    return name.ends_with(log) && detail::AreDigits(name.substr(0, name.size() - log.size())) &&
           Succeeded(wm::FileSize(wm::JoinPath(folder, name), &bytes)) && bytes == 0;
}

}  // namespace

bool HasDatabaseName(const std::wstring& folder) {
    return IsDatabaseName(std::wstring_view(wm::LastPathComponent(folder)));
}

std::wstring PlaceForRemoval(const std::wstring& folder) {
    const std::wstring first = folder + removedMark;
    std::wstring place = first;
    for (unsigned number = 2; wm::FileExists(place); ++number)
        place = first + L'-' + std::to_wstring(number);
    return place;
}

bool IsLeftByRemoval(const std::wstring& folder) {
    return IsRemovedName(std::wstring_view(wm::LastPathComponent(folder)));
}

bool HoldsNoRows(const std::wstring& folder) {
    std::vector<std::wstring> inside;
    if (!HasDatabaseName(folder) || wm::IsLink(folder) || Failed(wm::ListNames(folder, inside)))
        return false;
    return std::all_of(inside.begin(), inside.end(), [&](const std::wstring& name) {
        return wm::IsRegularFile(wm::JoinPath(folder, name)) &&
               (IsBookkeeping(name) || IsEmptyLog(folder, name));
    });
}

bool IsOfSystem(const std::wstring& folder) {
    return wm::LastPathComponent(folder) == wm::foundBySystem;
}

bool IsOutOfReach(const std::wstring& folder) {
    std::vector<std::wstring> inside;
    return IsOfSystem(folder) || wm::ListNames(folder, inside) == hr::accessDenied;
}

void RemoveDatabase(const std::wstring& folder) noexcept {
    const HRESULT result = AtBoundary([&folder] {
        std::string narrow;
        // The library would follow a link that stands in the folder's place by now.
        if (!wm::IsLink(folder) && wm::ToUtf8(folder, narrow)) {
            const leveldb::Status status = leveldb::DestroyDB(narrow, leveldb::Options());
            if (!status.ok())
                wm::Trace(wm::message::databaseNotRemoved, FromStatus(status), status.ToString());
        }
        return wm::RemoveTree(folder);
    });
    if (Failed(result))
        wm::Trace(wm::message::folderNotRemoved, result, wm::ToUtf8Lossy(folder));
}

}  // namespace ZEL
