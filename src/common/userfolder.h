#pragma once

#include "common/machinedescription.h"

namespace ZEL {

// The well-known folder of one user. Where the machine knows such folders for the calling account
// alone, the user's lies at the same place under the user's own profile; a folder that lies outside
// of the calling account's profile is shared by all. False when nobody can tell. `folder` is a
// number of the shell, with flags as the machine takes them; they decide whether the folder has to
// exist. `path` is unspecified on failure. For any thread.
bool FolderOfUser(wm::IMachineDescription& machine, const wm::MachineUser& user, int folder,
                  std::wstring& path);

}  // namespace ZEL
