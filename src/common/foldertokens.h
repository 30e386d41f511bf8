#pragma once

#include <span>

namespace ZEL {

// The names by which queries and descriptions of machines call the well-known folders. The numbers
// are those of the Windows shell on every machine, also where another system or a description
// answers for them.
struct FolderToken {
    const wchar_t* name;  // behind CSIDL_
    int folder;           // number of the shell
    bool perUser;         // each account has its own
};

// In the order in which a path is compared with them. Two names may share a folder. The table lives
// as long as the program.
std::span<const FolderToken> FolderTokenTable() noexcept;

}  // namespace ZEL
