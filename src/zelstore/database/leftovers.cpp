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
constexpr std::wstring_view logEnding = L".log";

// Whether a file of the library's with that ending, which has a number in front.
bool IsNumbered(std::wstring_view name, std::wstring_view ending) {
    return name.ends_with(ending) && detail::AreDigits(name.substr(0, name.size() - ending.size()));
}

// Files as the library names them, those that may hold rows apart.
bool IsBookkeeping(std::wstring_view name) {
    constexpr std::wstring_view manifest = L"MANIFEST-", fresh = L".dbtmp";
    if (name == L"CURRENT" || name == L"LOCK" || name == L"LOG" || name == L"LOG.old")
        return true;
    if (name.starts_with(manifest))
        return detail::AreDigits(name.substr(manifest.size()));
    return IsNumbered(name, fresh);
}

bool IsTable(std::wstring_view name) {
    return IsNumbered(name, L".ldb") || IsNumbered(name, L".sst");
}

bool IsEmptyFile(const std::wstring& path) {
    std::uint64_t bytes = 0;
    return Succeeded(wm::FileSize(path, &bytes)) && bytes == 0;
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
        const std::wstring path = wm::JoinPath(folder, name);
        return wm::IsRegularFile(path) &&
               (IsBookkeeping(name) || (IsNumbered(name, logEnding) && IsEmptyFile(path)));
    });
}

bool MayHoldRows(const std::wstring& folder) {
    std::vector<std::wstring> inside;
    if (Failed(wm::ListNames(folder, inside)))
        return false;
    return std::any_of(inside.begin(), inside.end(), [&](const std::wstring& name) {
        return IsTable(name) ||
               (IsNumbered(name, logEnding) && !IsEmptyFile(wm::JoinPath(folder, name)));
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
