#pragma once

#include "common/machinedescription.h"

namespace ZEL {

// The well-known folder of one user. Where the machine knows such folders for the calling account
// alone, the user's lies at the same place under the user's own profile; a folder that lies outside
// of the calling account's profile is shared by all. False when nobody can tell.
bool FolderOfUser(wm::IMachineDescription& machine, const wm::MachineUser& user, int folder,
                  std::wstring& path);

}  // namespace ZEL
