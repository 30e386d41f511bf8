#pragma once

#include <cstdint>

#include "common/machinedescription.h"

// The words of a machine's description, shared by what reads and what writes one. They are a file
// format that people keep (docs/machine.md), so a name that is changed here makes older
// descriptions unreadable. Reader and writer take them from this place alone.
namespace wm::machineKey {

inline constexpr const char* document = "the description";  // for complaints

inline constexpr const char* computerName = "computer_name";
inline constexpr const char* osMajorVersion = "os_major_version";
inline constexpr const char* arm = "arm";
inline constexpr const char* systemDirectory = "system_directory";
inline constexpr const char* drives = "drives";
inline constexpr const char* folders = "folders";
inline constexpr const char* userFolders = "user_folders";
inline constexpr const char* variables = "variables";
inline constexpr const char* users = "users";
inline constexpr const char* sid = "sid";
inline constexpr const char* account = "account";
inline constexpr const char* domain = "domain";
inline constexpr const char* profile = "profile";
inline constexpr const char* variablesAre = "variables_are";

// Kinds that can't be described, such as a memory disk, are left out when a machine is written:
// paths can't ask for them either.
struct DriveKind {
    std::uint32_t number;
    const wchar_t* name;
};
inline constexpr DriveKind driveKinds[] = {
    {driveType::fixed, L"fixed"},
    {driveType::removable, L"removable"},
    {driveType::remote, L"remote"},
    {driveType::cdrom, L"cdrom"},
};

// Tells the reader whether what a logon computes has to be worked out beside the user's variables.
struct Source {
    VariableSource source;
    const wchar_t* name;
};
inline constexpr Source sources[] = {
    {VariableSource::none, L"none"},
    {VariableSource::stored, L"stored"},
    {VariableSource::session, L"session"},
};

}  // namespace wm::machineKey
