#pragma once

#include <string>

// Folders that a process leaves behind which is killed while it removes a database or makes one.
//
// A database that is to go first gets a name that no database has (foldernames.h), and whoever
// starts next takes the rest away. A folder whose making was cut off keeps its name, but nothing in
// it holds a row.
namespace ZEL {

// Whether the folder is named as the store names its own.
bool HasDatabaseName(const std::wstring& folder);
// The free name, in the same store, that the folder gets for its removal.
std::wstring PlaceForRemoval(const std::wstring& folder);
// Whether the name is one that PlaceForRemoval gives.
bool IsLeftByRemoval(const std::wstring& folder);
// Whether the folder has a database's name, and in it nothing but files of the library that hold no
// rows: no table, no log with anything in it. Without any file it is such a one.
bool HoldsNoRows(const std::wstring& folder);
// Whether a table or a log with anything in it stands in the folder, whatever its name is.
bool MayHoldRows(const std::wstring& folder);
// Whether the system keeps there what a check of the volume has found.
bool IsOfSystem(const std::wstring& folder);
// Whether no store looks into it: for being the system's, or since this user may not.
bool IsOutOfReach(const std::wstring& folder);

// Takes all files away, under the name that the folder has. Nobody may use it. Failures are traced.
void RemoveDatabase(const std::wstring& folder) noexcept;

}  // namespace ZEL
