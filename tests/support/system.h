#pragma once

#include <filesystem>
#include <string>

// What tests ask of the system they run on; each has a folder that defines it.
namespace ZEL::test {

// A new empty folder that no other process has.
std::filesystem::path MakeTempFolder();
void RemoveTempFolder(const std::filesystem::path& folder);
void SetEnvironment(const std::string& name, const std::string& value);
// False where the system makes no such link for this user.
bool LinkFolder(const std::filesystem::path& target, const std::filesystem::path& link);
bool LinkFile(const std::filesystem::path& target, const std::filesystem::path& link);
// Wine tells them from folders and refuses to remove either.
bool CanRemoveFolderLinks();
// A folder whose name is no Unicode text, where the file system takes one.
void MakeFolderWithoutUnicode(const std::filesystem::path& parent);
void OpenToOthers(const std::filesystem::path& file);
bool IsForItsOwnerAlone(const std::filesystem::path& path);
// The host services' library, as a loader finds it.
extern const wchar_t* const hostLibrary;
// What a library, told without its extension, exports under a name. It stays loaded.
void* ExportOf(const std::wstring& library, const char* name);

}  // namespace ZEL::test
