#include "common/userfolder.h"

#include "common/patterntext.h"

// Windows tells the folders of one account, the caller's. All profiles are laid out alike, so the
// caller's folder is cut behind the profile's own name and what follows is put behind another
// user's profile: C:\Users\agent\AppData\Roaming becomes D:\Profiles\ann\AppData\Roaming.

namespace ZEL {

namespace {

constexpr int profileFolder = 0x28 | wm::folderFlag::dontUnexpand;

}  // namespace

// What two users have in common is the parent of all profiles: whatever of the caller's lies below
// that is taken for the caller's alone.
bool FolderOfUser(wm::IMachineDescription& machine, const wm::MachineUser& user, int folder,
                  std::wstring& path) {
    if (machine.UserFolder(user, folder, path))
        return true;
    std::wstring own, profile;
    if (user.profileFolder.empty() || !machine.Folder(folder, own) ||
        !machine.Folder(profileFolder, profile))
        return false;
    const std::size_t parentLength = profile.rfind(L'\\') + 1;  // 0 when there is no separator
    if (parentLength == 0 || !StartsWithNoCase(own, profile.substr(0, parentLength))) {
        path = own;
        return true;
    }
    const std::size_t cut = own.find(L'\\', parentLength);
    path = user.profileFolder;
    if (cut != std::wstring::npos)
        path.append(own, cut);
    return true;
}

}  // namespace ZEL
