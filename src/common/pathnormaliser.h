#pragma once

#include <set>
#include <string>

#include "common/environmentvariablebroker.h"
#include "common/machinedescription.h"

namespace ZEL {

// In the order of code units, as wcscmp has it.
using PathSet = std::set<std::wstring>;

// Turns a path as a query may write it (CSIDL_APPDATA\x, CSIDL_DRIVE_FIXED\x, %WINDIR%\x) into the
// concrete paths that it stands for on one machine: one for each user, drive and redirected folder
// that applies. Paths have backslashes, also where the machine's own separator is another. With
// `isPattern` the path is a regular expression, and what is put into it is escaped. For any thread.
// Tokens and variables are known in any letter case, and what is put in keeps the case in which the
// machine has it.
class PathNormaliser {
public:
    // Both are used as long as the object lives.
    PathNormaliser(wm::IMachineDescription& machine, CEnvironmentVariableBroker& broker)
        : machine_(machine), broker_(broker) {}

    // Adds to `out`; a path that stands for nothing else stands for itself. 0x80070057 for a null
    // path. Throws std::bad_alloc. Where the machine can't list its users, which is traced, tokens
    // of folders and drives alone are expanded.
    HRESULT ExpandPathVariants(const wchar_t* path, PathSet& out, bool isPattern);

    // What a user's variables make of a text. A < or > comes out as %. Names that are not known
    // stay as they stand, and a variable that names itself ends after a bounded number of steps.
    std::wstring ExpandEnvironmentTokens(const std::wstring& sid, const std::wstring& text,
                                         bool isPattern);

private:
    // Both add the paths for a token that `path` begins with, and nothing when there is none.
    void ExpandFolderTokens(const std::wstring& path, PathSet& out, bool isPattern);
    void ExpandDriveTokens(const std::wstring& path, PathSet& out, bool isPattern);

    wm::IMachineDescription& machine_;
    CEnvironmentVariableBroker& broker_;
};

// The same for the machine of the process. The first call reads every user's variables, which may
// take seconds.
HRESULT ExpandPathVariants(const wchar_t* path, PathSet& out, bool isPattern);

}  // namespace ZEL
